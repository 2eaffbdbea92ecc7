#include "DeviceSettings.h"

#include <utility>

#include "FarSide.h"
#include "quill/ostream_string.h"
#include "Window.h"

namespace quill::stream {
using base::AttrSet;

DeviceSettings& DeviceSettings::Globle() {
  static auto* settings = new DeviceSettings;
  return *settings;
}

namespace {

// The handle that a probe of `kind` brings, 0 when it fails.
std::uint64_t HandleOf(const std::string& kind, const std::function<bool(AttrSet&)>& run) {
  AttrSet probe;
  probe.Add("cmd", "ProbeAudioDriver");
  probe.Add("devType", kind);
  return run(probe) ? base::ReadHandle(probe.Get("object_base")) : 0;
}

void Send(const std::string& kind, std::uint64_t handle, const AttrSet& settings,
          const std::function<bool(AttrSet&)>& run) {
  for (const AttrSet::Pair& setting : settings.Pairs()) {
    AttrSet request;
    request.Add("cmd", "SetAudioDriver");
    request.Add("devType", kind);
    request.Add("object_base", base::HandleText(handle));
    request.Add(setting.key.c_str(), setting.value);
    // Goes on: another board may lack a control.
    static_cast<void>(run(request));
  }
}

}  // namespace

bool DeviceSettings::Probe(AttrSet& request, std::string& error) {
  const auto far_side = FarSide::Ensure(error);
  if (far_side == nullptr || !far_side->Run(request, error)) return false;
  const char* kind = request.Get("devType");
  const std::uint64_t handle = base::ReadHandle(request.Get("object_base"));
  if (kind != nullptr && handle != 0) Learn(kind, handle);
  return true;
}

bool DeviceSettings::Set(AttrSet& request, std::string& error) {
  error = IsForkedChild() ? kForked : "no device was probed";
  auto far_side = IsForkedChild() ? nullptr : FarSide::Current();
  while (far_side != nullptr) {
    PutHandle(request);
    const bool done = far_side->Run(request, error);
    const bool is_refused = !done && request.Get("error") != nullptr;
    if (!is_refused) Note(request);
    if (done || is_refused) return done;
    // Another thread may have reached the next one, and restored what was noted before this.
    const auto before = std::exchange(far_side, FarSide::Current());
    if (far_side == before) return false;
  }
  return false;
}

void DeviceSettings::Learn(const std::string& kind, std::uint64_t handle) {
  const std::lock_guard lock(_mutex);
  _devices[kind].handle = handle;
  _devices[kind].given.insert(handle);
}

DeviceSettings::Device* DeviceSettings::Find(const AttrSet& request) {
  const char* kind = request.Get("devType");
  const auto place = _devices.find(kind == nullptr ? "" : kind);
  if (place == _devices.end()) return nullptr;
  const std::uint64_t handle = base::ReadHandle(request.Get("object_base"));
  return place->second.given.contains(handle) ? &place->second : nullptr;
}

void DeviceSettings::PutHandle(AttrSet& request) {
  const std::lock_guard lock(_mutex);
  const Device* device = Find(request);
  if (device != nullptr) request.Add("object_base", base::HandleText(device->handle));
}

void DeviceSettings::Note(const AttrSet& request) {
  const std::lock_guard lock(_mutex);
  Device* device = Find(request);
  if (device == nullptr) return;
  const auto keep = [device](const char* control, const char* value) {
    device->settings.Remove(control);
    device->settings.Add(control, value);
  };
  bool is_muted = false;
  const char* mute = request.Get("mute");
  // Muting leaves a volume of 0 behind when it goes.
  if (mute != nullptr && base::ConvertToImpl(mute, is_muted) && is_muted) keep("vol", "0");
  for (const char* control : {"vol", "agc", "mute"}) {
    if (const char* value = request.Get(control)) keep(control, value);
  }
}

void DeviceSettings::Restore(const std::function<bool(AttrSet&)>& run) {
  Devices devices;
  {
    const std::lock_guard lock(_mutex);
    devices = _devices;
  }
  for (const auto& [kind, device] : devices) {
    const std::uint64_t handle = HandleOf(kind, run);
    // One that is not there answers false until the next real-time side has it; one that has its
    // handle still is the same as ever, reached anew.
    if (handle == 0 || handle == device.handle) continue;
    Send(kind, handle, device.settings, run);
    Learn(kind, handle);
  }
}

}  // namespace quill::stream
