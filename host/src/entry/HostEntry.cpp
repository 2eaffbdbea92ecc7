// The client's way in, the host's own classes, and the commands that it serves.
#include <algorithm>
#include <cstdint>
#include <mutex>
#include <set>
#include <string_view>

#include <dlfcn.h>
#include <link.h>

#include "Application.h"
#include "Construction.h"
#include "CurrentConnection.h"
#include "DeviceSettings.h"
#include "FuncSink.h"
#include "InstallPaths.h"
#include "IOSinkPerFrame.h"
#include "messages/AudioControls.h"
#include "quill/Debug.h"
#include "quill/Factory.h"
#include "quill/Host.h"
#include "quill/IClass.h"
#include "ShmSource.h"
#include "Window.h"

namespace quill {
namespace {

using base::AttrSet;
using base::Factory;
using base::IClass;
using base::TClass;

struct Announced {
  void (*announce)(const char*);
  const link_map* library;  // the one that holds the function
};

// Never destroyed, as other libraries may use it until the process ends.
struct Entry {
  std::mutex mutex;
  std::vector<Announced> announced;   // guarded by mutex; those not called yet
  int announcements = 0;              // guarded by mutex
  std::set<const link_map*> plugins;  // guarded by mutex; libraries that have announced themselves
};

Entry& TheEntry() {
  static auto* entry = new Entry;
  return *entry;
}

// "shm0_cmd": a request to the real-time side; the first one starts it.
bool RunShm0Command(AttrSet& args) {
  const char* text = args.Get(tessel::link::kCommandKey);
  const std::string_view command = text == nullptr ? "" : text;
  stream::DeviceSettings& devices = stream::DeviceSettings::Globle();
  std::string error;
  bool done = false;
  if (command == tessel::link::ProbeAudio::kName) {
    done = devices.Probe(args, error);
  } else if (command == tessel::link::SetAudio::kName) {
    done = devices.Set(args, error);
  } else if (const auto connection = stream::CurrentConnection::Ensure(error)) {
    done = connection->Run(args, error);
  }
  return !stream::Failed(!done, "!connection->Run(args)", error);
}

// "shm_alloc": a block of `size` bytes for the object under construction on this thread.
bool AllocateSharedMemory(AttrSet& args) {
  unsigned size_bytes = 0;
  if (stream::Failed(!args.Get("size", size_bytes) || size_bytes == 0, "!size")) return false;
  const base::object* owner = base::Construction::Current();
  if (stream::Failed(owner == nullptr, "!owner",
                     "shm_alloc outside a constructor: nobody could free it")) {
    return false;
  }
  stream::Window* window = stream::Window::Globle();
  void* block = window == nullptr ? nullptr : window->AllocateBlock(size_bytes, owner);
  return block != nullptr && args.Add("ptr", base::ToString<const void*>(block));
}

// "shm_free": gives up the block of the object that is being destroyed on this thread. The memory
// is freed when the whole object is gone (see Construction), as later destructors still close the
// application that uses the block.
std::uintptr_t FreeSharedMemory() { return 0; }

template <typename Class, typename... Args>
void EnterHostClass(const char* name) {
  auto* record = new TClass<Args...>(name, {});
  record->template Describe<Class>();
  record->Init("tesselhost", 0x010000, nullptr, nullptr, nullptr);
  IClass::Register(record);
}

const bool g_is_set_up = [] {
  EnterHostClass<stream::Application>("Application");
  EnterHostClass<stream::Pipeline>("pipeline");
  EnterHostClass<stream::ShmSource>("ShmSource");
  EnterHostClass<stream::IOSinkPerFrame>("IOSinkPerFrame");
  EnterHostClass<stream::FuncSink, stream::FuncSink::OpenFunction, stream::FuncSink::CloseFunction,
                 stream::FuncSink::OutputFunction, stream::FuncSink::MessageFunction>("FuncSink");
  Factory& factory = Factory::Globle();
  factory.ReplaceCommand("shm0_cmd", &RunShm0Command);
  factory.ReplaceCommand("shm_alloc", &AllocateSharedMemory);
  factory.ReplaceFunction<std::uintptr_t()>("shm_free", &FreeSharedMemory);
  return true;
}();

bool Refuse(const std::string& reason, std::string* error) {
  stream::Fail("!LoadPlugin", reason);
  if (error != nullptr) *error = reason;
  return false;
}

}  // namespace

int base::ReflectAdd(void (*announce)(const char*), int, const char* name, const char* version) {
  if (stream::Failed(announce == nullptr || name == nullptr || version == nullptr, "!announce")) {
    return 0;
  }
  Dl_info info = {};
  void* library = nullptr;
  dladdr1(reinterpret_cast<void*>(announce), &info, &library, RTLD_DL_LINKMAP);
  Entry& entry = TheEntry();
  const std::lock_guard lock(entry.mutex);
  entry.announced.push_back({announce, static_cast<const link_map*>(library)});
  return ++entry.announcements;
}

namespace host {

bool LoadPlugin(const char* path, std::string* error) {
  constexpr char kDefault[] = "libpluginapistreaming.so";
  const std::string file = path == nullptr ? stream::FindLibrary(kDefault) : path;
  if (file.empty()) {
    return Refuse(std::string(kDefault) + " stands neither beside " + stream::LibraryFolder() +
                      " nor where it is installed",
                  error);
  }
  Entry& entry = TheEntry();
  // Never closed: its code makes the objects of its classes for as long as the process lives.
  dlerror();
  void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* reason = dlerror();
    return Refuse(reason == nullptr ? file : reason, error);
  }
  const link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) return Refuse(file, error);
  std::vector<Announced> fresh;
  bool is_plugin = false;
  {
    const std::lock_guard lock(entry.mutex);
    // Plug-ins that something else has loaded are called once they are loaded here.
    const auto others =
        std::stable_partition(entry.announced.begin(), entry.announced.end(),
                              [map](const Announced& plugin) { return plugin.library == map; });
    fresh.assign(entry.announced.begin(), others);
    entry.announced.erase(entry.announced.begin(), others);
    if (!fresh.empty()) entry.plugins.insert(map);
    is_plugin = entry.plugins.contains(map);
  }
  for (const Announced& plugin : fresh) plugin.announce(nullptr);
  return is_plugin || Refuse(file + " announces no plug-in", error);
}

std::vector<const IClass*> Classes() { return IClass::All(); }

base::object* CreateObject(const char* name, const char* attributes) {
  const IClass* record = IClass::Find(name, true);
  if (stream::Failed(record == nullptr, "!record", "no class: ", name)) return nullptr;
  AttrSet set;
  if (stream::Failed(!set.Parse(attributes), "!set.Parse(attributes)", set.Error())) return nullptr;
  return record->CreateObject(nullptr, set, nullptr);
}

std::vector<StreamCounters> Streams() {
  std::vector<StreamCounters> streams;
  for (const auto& session : stream::Session::All()) {
    const auto counters = session->Counters();
    streams.push_back({.session = session->Name(),
                       .published = counters.published,
                       .delivered = counters.delivered,
                       .dropped = counters.dropped,
                       .thinned = counters.thinned,
                       .untriggered = counters.untriggered,
                       .refused = counters.refused,
                       .held = counters.held});
  }
  return streams;
}

WindowUse GetWindowUse() {
  stream::Window* window = stream::Window::Globle();
  if (window == nullptr) return {};
  return {window->UsedBytes(), window->FreePieces()};
}

pid_t RtosProcessId() {
  const auto connection = stream::CurrentConnection::Get();
  return connection != nullptr && connection->IsAlive() ? connection->Process() : 0;
}

}  // namespace host
}  // namespace quill
