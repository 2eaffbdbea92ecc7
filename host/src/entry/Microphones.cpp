// Microphones by the name of their back end.
#include <map>
#include <mutex>
#include <string>

#include "ForkedChild.h"
#include "quill/Host.h"
#include "tessel/IMicrophone.h"

namespace tessel::dev {

// Never destroyed: sources keep what they were given.
IMicrophone* IAudioDevice::Microphone(const char* name) {
  using Held = quill::host::Handle<IMicrophone>;
  static auto* mutex = new std::mutex;
  static auto* made = new std::map<std::string, Held>;  // guarded by *mutex
  // In a child after fork another thread may have had the lock; the devices are the parent's.
  if (name == nullptr || quill::stream::IsForkedChild()) return nullptr;
  const std::lock_guard lock(*mutex);  // over the probe: each device is made once
  const auto known = made->find(name);
  if (known != made->end()) return known->second.get();
  const std::string class_name = std::string("Microphone-ApiMicrophone-") + name;
  Held fresh = quill::host::Create<IMicrophone>(class_name.c_str());
  return fresh ? made->emplace(name, std::move(fresh)).first->second.get() : nullptr;
}

}  // namespace tessel::dev
