// Microphones by the name of their back end.
#include <map>
#include <mutex>
#include <string>

#include "quill/Host.h"
#include "tessel/IMicrophone.h"

namespace tessel::dev {

// Never destroyed: sources keep what they were given.
IMicrophone* IAudioDevice::Microphone(const char* name) {
  using Held = quill::host::Handle<IMicrophone>;
  static auto* mutex = new std::mutex;
  static auto* made = new std::map<std::string, Held>;  // guarded by *mutex
  if (name == nullptr) return nullptr;
  const std::lock_guard lock(*mutex);  // over the probe: each device is made once
  const std::string class_name = std::string("Microphone-ApiMicrophone-") + name;
  Held& microphone = (*made)[class_name];
  if (!microphone) microphone = quill::host::Create<IMicrophone>(class_name.c_str());
  return microphone.get();
}

}  // namespace tessel::dev
