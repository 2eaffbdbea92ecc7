#include "DeviceSettings.h"

#include "FarSide.h"
#include "quill/Debug.h"
#include "quill/ostream_string.h"

namespace quill::stream {
namespace {

using base::AttrSet;

void PutHandle(AttrSet& request, std::uint64_t handle) {
  request.Add("object_base", base::ToString(reinterpret_cast<const void*>(handle)));
}

}  // namespace

DeviceSettings& DeviceSettings::Globle() {
  static auto* settings = new DeviceSettings;
  return *settings;
}

void DeviceSettings::Learn(const AttrSet& probe) {
  const char* kind = probe.Get("devType");
  const std::uint64_t handle = ObjectHandle(probe.Get("object_base"));
  if (kind == nullptr || handle == 0) return;
  const std::lock_guard lock(_mutex);
  _devices[kind].handle = handle;
  _kinds[handle] = kind;
}

void DeviceSettings::Note(AttrSet& request) {
  const std::lock_guard lock(_mutex);
  const auto known = _kinds.find(ObjectHandle(request.Get("object_base")));
  if (known == _kinds.end()) return;
  Device& device = _devices[known->second];
  const auto keep = [&device](const char* control, const char* value) {
    device.settings.Remove(control);
    device.settings.Add(control, value);
  };
  for (const char* control : {"vol", "agc", "mute"}) {
    const char* value = request.Get(control);
    if (value == nullptr) continue;
    bool is_muted = false;
    const bool is_mute = std::string(control) == "mute" && base::ConvertToImpl(value, is_muted);
    if (is_mute && is_muted) keep("vol", "0");  // which stays when the mute goes
    keep(control, value);
  }
  PutHandle(request, device.handle);
}

void DeviceSettings::Restore(const std::function<bool(AttrSet&)>& run) {
  const std::lock_guard lock(_mutex);
  for (auto& [kind, device] : _devices) {
    // Goes on: the device answers false until the next real-time side has it.
    static_cast<void>(Failed(!RestoreOne(kind, device, run), "!RestoreOne(kind,device,run)", kind));
  }
}

bool DeviceSettings::RestoreOne(const std::string& kind, Device& device,
                                const std::function<bool(AttrSet&)>& run) {
  AttrSet probe;
  probe.Add("cmd", "ProbeAudioDriver");
  probe.Add("devType", kind);
  if (!run(probe)) return false;
  device.handle = ObjectHandle(probe.Get("object_base"));
  _kinds[device.handle] = kind;
  for (const AttrSet::Pair& setting : device.settings.Pairs()) {
    AttrSet request;
    request.Add("cmd", "SetAudioDriver");
    request.Add("devType", kind);
    PutHandle(request, device.handle);
    request.Add(setting.key.c_str(), setting.value);
    // Goes on: what the device refuses it refused the first time too.
    static_cast<void>(run(request));
  }
  return true;
}

}  // namespace quill::stream
