#include "DeviceSettings.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "FarSide.h"
#include "ForkedChild.h"
#include "quill/ostream_string.h"
#include "Window.h"

namespace quill::stream {
using base::AttrSet;

DeviceSettings& DeviceSettings::Globle() {
  static auto* settings = new DeviceSettings;
  return *settings;
}

namespace {

constexpr const char* kControls[] = {"vol", "agc", "mute"};

// The handle that a probe of `kind` brings, 0 when it fails.
std::uint64_t HandleOf(const std::string& kind, const DeviceSettings::Command& run) {
  AttrSet probe;
  probe.Add("cmd", "ProbeAudioDriver");
  probe.Add("devType", kind);
  return run(probe) ? base::ReadHandle(probe.Get("object_base")) : 0;
}

// False when one of them is not heard. A refusal is an answer: another board may lack a control.
bool Send(const std::string& kind, std::uint64_t handle, const AttrSet& settings,
          const DeviceSettings::Command& run) {
  for (const AttrSet::Pair& setting : settings.Pairs()) {
    AttrSet request;
    request.Add("cmd", "SetAudioDriver");
    request.Add("devType", kind);
    request.Add("object_base", base::HandleText(handle));
    request.Add(setting.key.c_str(), setting.value);
    if (!run(request) && request.Get("error") == nullptr) return false;
  }
  return true;
}

}  // namespace

bool DeviceSettings::Probe(AttrSet& request, std::string& error) {
  const auto far_side = FarSide::Ensure(error);
  if (far_side == nullptr) return false;
  const AttrSet asked = request;
  if (!far_side->Run(request, error)) return false;
  const char* kind = request.Get("devType");
  const std::uint64_t handle = base::ReadHandle(request.Get("object_base"));
  if (kind == nullptr || handle == 0) return true;
  const auto run = [&](AttrSet& args) { return far_side->Run(args, error); };
  if (!Renew(kind, handle, far_side->Number(), run)) return true;
  request = asked;  // once more: this was before the settings
  return far_side->Run(request, error);
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

bool DeviceSettings::Renew(const std::string& kind, std::uint64_t handle, std::uint64_t connection,
                           const Command& run) {
  AttrSet settings;
  {
    const std::lock_guard lock(_mutex);
    Device& device = _devices[kind];
    // An answer that was overtaken; or a device that is still the same, perhaps reached anew.
    if (connection < device.connection || handle == device.handle) return false;
    settings = device.settings;
  }
  if (!Send(kind, handle, settings, run)) return false;  // all of it once more, then
  const std::lock_guard lock(_mutex);
  Device& device = _devices[kind];
  if (connection < device.connection) return false;
  device.connection = connection;
  device.handle = handle;
  device.given.insert(handle);
  return !settings.Pairs().empty();
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

// As the real-time side takes it.
void DeviceSettings::Note(const AttrSet& request) {
  const std::lock_guard lock(_mutex);
  Device* device = Find(request);
  if (device == nullptr) return;
  const auto keep = [device](const std::string& control, const std::string& value) {
    device->settings.Remove(control.c_str());
    device->settings.Add(control.c_str(), value);
  };
  for (const auto& [key, value] : request.Pairs()) {
    if (std::find(std::begin(kControls), std::end(kControls), key) == std::end(kControls)) continue;
    bool is_on = false;
    // Muting leaves a volume of 0 behind when it goes.
    if (key == "mute" && base::ConvertToImpl(value.c_str(), is_on) && is_on) keep("vol", "0");
    keep(key, value);
  }
}

void DeviceSettings::Restore(std::uint64_t connection, const Command& run) {
  Devices devices;
  {
    const std::lock_guard lock(_mutex);
    devices = _devices;
  }
  for (const auto& [kind, device] : devices) {
    // One that is not there answers false until a real-time side has it.
    const std::uint64_t handle = HandleOf(kind, run);
    if (handle != 0) Renew(kind, handle, connection, run);
  }
}

}  // namespace quill::stream
