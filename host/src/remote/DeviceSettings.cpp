#include "DeviceSettings.h"

#include <chrono>
#include <utility>

#include "CurrentConnection.h"
#include "ForkedChild.h"
#include "messages/AudioControls.h"
#include "quill/ostream_string.h"
#include "Timeouts.h"

namespace quill::stream {
using base::AttrSet;
namespace link = tessel::link;

namespace {

using Command = std::function<bool(AttrSet&)>;

// The handle of the device of `kind`, by a probe; 0 when that fails.
std::uint64_t ProbeHandle(const std::string& kind, const Command& run) {
  AttrSet probe;
  std::string error;
  link::ProbeAnswer answer;
  const bool is_read = WriteRequest(link::ProbeAudio{kind}, probe, error) && run(probe) &&
                       ReadAnswer(probe, answer, error);
  return is_read ? answer.object_base.number : 0;
}

// False when one of the settings is not answered. A refusal is an answer: the device of another
// board may lack a control.
bool Send(const std::string& kind, std::uint64_t handle, const AttrSet& settings,
          const Command& run) {
  for (const AttrSet::Pair& setting : settings.Pairs()) {
    link::SetAudio set{kind, {handle}, {}};
    set.settings.Add(setting.key.c_str(), setting.value);
    AttrSet request;
    std::string error;
    if (!WriteRequest(set, request, error)) continue;
    if (!run(request) && link::RefusalIn(request) == nullptr) return false;
  }
  return true;
}

}  // namespace

DeviceSettings& DeviceSettings::Globle() {
  static auto* settings = new DeviceSettings;
  return *settings;
}

DeviceSettings::DeviceSettings() {
  CurrentConnection::AfterHandshake([this](RtosConnection& rtos) { Restore(rtos); });
}

bool DeviceSettings::Probe(AttrSet& request, std::string& error) {
  const auto rtos = CurrentConnection::Ensure(error);
  if (rtos == nullptr) return false;
  const AttrSet asked = request;
  if (!rtos->Run(request, error)) return false;
  link::ProbeAudio probe;
  link::ProbeAnswer answer;
  std::string unreadable;
  // Goes on: the client judges an answer without a device.
  if (!Read(asked, probe, unreadable) || !ReadAnswer(request, answer, unreadable)) return true;
  const Command run = [&](AttrSet& args) { return rtos->Run(args, error); };
  if (!Renew(probe.device, answer.object_base.number, rtos->Number(), run)) return true;
  request = asked;  // The first answer tells the values from before the settings were sent.
  return rtos->Run(request, error);
}

bool DeviceSettings::Set(AttrSet& request, std::string& error) {
  error = IsForkedChild() ? kForked : "no device was probed";
  auto rtos = CurrentConnection::Await();
  while (rtos != nullptr) {
    PutHandle(request);
    const bool done = rtos->Run(request, error);
    const bool is_refused = !done && link::RefusalIn(request) != nullptr;
    if (!is_refused) Note(request);
    if (done || is_refused) return done;
    // Not answered. Another thread may have opened the next connection meanwhile, and restored the
    // settings there before this one was noted.
    const auto before = std::exchange(rtos, CurrentConnection::Await());
    if (rtos == before) return false;
  }
  return false;
}

bool DeviceSettings::Renew(const std::string& kind, std::uint64_t handle, std::uint64_t connection,
                           const Command& run) {
  AttrSet settings;
  {
    const std::lock_guard lock(_mutex);
    Device& device = _devices[kind];
    // The answer is older than the handle known, or the device is still the same, perhaps reached
    // by a new connection.
    if (connection < device.connection || handle == device.handle) return false;
    settings = device.settings;
  }
  // When one setting is not answered, the next probe sends all of them again.
  if (!Send(kind, handle, settings, run)) return false;
  const std::lock_guard lock(_mutex);
  Device& device = _devices[kind];
  if (connection < device.connection) return false;
  device.connection = connection;
  device.handle = handle;
  device.handles.insert(handle);
  return !settings.Pairs().empty();
}

DeviceSettings::Device* DeviceSettings::Find(const AttrSet& request) {
  link::SetAudio set;
  std::string error;
  if (!Read(request, set, error)) return nullptr;
  const auto place = _devices.find(set.device);
  const bool is_known =
      place != _devices.end() && place->second.handles.contains(set.object_base.number);
  return is_known ? &place->second : nullptr;
}

void DeviceSettings::PutHandle(AttrSet& request) {
  const std::lock_guard lock(_mutex);
  const Device* device = Find(request);
  link::SetAudio set;
  std::string error;
  if (device == nullptr || !Read(request, set, error)) return;
  set.object_base.number = device->handle;
  static_cast<void>(Write(set, request, error));  // its texts come from the request
}

void DeviceSettings::Note(const AttrSet& request) {
  const std::lock_guard lock(_mutex);
  Device* device = Find(request);
  if (device == nullptr) return;
  const auto keep = [device](const std::string& control, const std::string& value) {
    device->settings.Remove(control.c_str());
    device->settings.Add(control.c_str(), value);
  };
  link::SetAudio set;
  std::string error;
  if (!Read(request, set, error)) return;
  for (const auto& [key, value] : set.settings.Pairs()) {
    bool is_on = false;
    // The device's volume is 0 after it was muted, also when the muting has ended.
    if (key == link::kMute && base::ConvertToImpl(value.c_str(), is_on) && is_on)
      keep(link::kVolume, "0");
    keep(key, value);
  }
}

void DeviceSettings::Restore(RtosConnection& rtos) {
  Devices devices;
  {
    const std::lock_guard lock(_mutex);
    devices = _devices;
  }
  const auto deadline = std::chrono::steady_clock::now() + CommandTimeout();
  const Command run = [&](AttrSet& args) {
    const std::chrono::nanoseconds left = deadline - std::chrono::steady_clock::now();
    args.Add("timeout", static_cast<long long>(left.count()));
    std::string refusal;
    return left.count() > 0 && rtos.Run(args, refusal);
  };
  for (const auto& [kind, device] : devices) {
    // A device that this real-time side lacks has no handle.
    const std::uint64_t handle = ProbeHandle(kind, run);
    if (handle != 0) Renew(kind, handle, rtos.Number(), run);
  }
}

}  // namespace quill::stream
