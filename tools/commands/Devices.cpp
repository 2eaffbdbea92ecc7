#include "Devices.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "quill/Host.h"
#include "tessel/IMicrophone.h"
#include "tessel/ISpeaker.h"

#include "Console.h"
#include "ErrorLog.h"
#include "Units.h"

#include <nlohmann/json.hpp>

namespace tessel::tool {
namespace {

using dev::IAudioDevice;
using Device = quill::host::Handle<IAudioDevice>;

struct DeviceRow {
  const char* kind;
  const char* short_kind;
  const char* class_name;
};
constexpr DeviceRow kDevices[] = {
    {"microphone", "mic", "Microphone-ApiMicrophone-dualos"},
    {"speaker", "speaker", "Speaker-ApiSpeaker-dualos"},
};

const char* OnOff(bool is_on) { return is_on ? "on" : "off"; }

// Null, and said why, when it cannot be had.
Device Probe(const DeviceRow& row) {
  ErrorLog::Forget();
  Device device = quill::host::Create<IAudioDevice>(row.class_name);
  if (!device) Say(std::string("no ") + row.kind + ": " + ErrorLog::LastReason());
  return device;
}

nlohmann::ordered_json Describe(const DeviceRow& row, const IAudioDevice& device) {
  nlohmann::ordered_json line = {
      {"device", row.kind},      {"id", device.DeviceID()},
      {"rate", device.Rate()},   {"channels", device.Channels()},
      {"depth", device.Depth()}, {"volume", nullptr},
      {"agc", nullptr},          {"mute", nullptr},
      {"gain", nullptr},
  };
  const auto range = [](int value, int least, int most) {
    return nlohmann::ordered_json{{"value", value}, {"min", least}, {"max", most}};
  };
  if (device.IsSupportVolumeControl()) {
    line["volume"] = range(device.Volume(), device.VolumeMin(), device.VolumeMax());
  }
  if (device.IsSupportAutoGainControl()) line["agc"] = device.AGC();
  if (device.IsSupportMute()) line["mute"] = device.Mute();
  if (device.IsSupportGain()) {
    line["gain"] = range(device.Gain(), device.GainMin(), device.GainMax());
  }
  return line;
}

// Says what the device has become when `change` is done.
template <typename Change>
int Alter(const DeviceOptions& options, bool (IAudioDevice::*is_supported)() const,
          const char* control, Change&& change) {
  const auto* row =
      std::find_if(std::begin(kDevices), std::end(kDevices), [&](const DeviceRow& candidate) {
        return options.device == candidate.kind || options.device == candidate.short_kind;
      });
  if (row == std::end(kDevices)) {
    Say("no device " + Quoted(options.device) + "; there are mic and speaker");
    return kWrongUsage;
  }
  std::vector<quill::host::BoardStream> streams;
  std::string error;
  if (!quill::host::ListBoard(streams, error)) {
    Say(error);
    return kFailed;
  }
  const Device device = Probe(*row);
  if (!device) return kFailed;
  if (!(*device.*is_supported)()) {
    Say(std::string("the ") + row->kind + " has no " + control);
    return kFailed;
  }
  ErrorLog::Forget();
  if (!change(*device)) {
    Say(std::string("the ") + control + " of the " + row->kind +
        " did not change: " + ErrorLog::LastReason());
    return kFailed;
  }
  std::printf("%s: %s\n", row->kind, DeviceText(*device).c_str());
  return kDone;
}

}  // namespace

std::string DeviceKind(const std::string& class_name) {
  for (const DeviceRow& row : kDevices) {
    if (class_name == row.class_name) return row.kind;
  }
  return "";
}

std::string DeviceText(const IAudioDevice& device) {
  std::string text =
      SoundText(device.Rate(), device.Channels()) + Format(", %d bits", device.Depth());
  text += device.IsSupportVolumeControl() ? Format(", volume %d of %d..%d", device.Volume(),
                                                   device.VolumeMin(), device.VolumeMax())
                                          : ", no volume control";
  text += device.IsSupportAutoGainControl() ? Format(", AGC %s", OnOff(device.AGC())) : ", no AGC";
  text += device.IsSupportMute() ? Format(", mute %s", OnOff(device.Mute())) : ", no mute";
  text += device.IsSupportGain()
              ? Format(", gain %d of %d..%d", device.Gain(), device.GainMin(), device.GainMax())
              : ", no gain";
  return text;
}

int Devices(const DevicesOptions& options) {
  int exit_code = kDone;
  for (const DeviceRow& row : kDevices) {
    const Device device = Probe(row);
    if (!device) {
      exit_code = kFailed;
    } else if (options.json) {
      std::printf("%s\n", Describe(row, *device).dump().c_str());
    } else {
      std::printf("%-12s%s\n", row.kind, DeviceText(*device).c_str());
    }
  }
  return exit_code;
}

int SetVolume(const DeviceOptions& options) {
  return Alter(options, &IAudioDevice::IsSupportVolumeControl, "volume control",
               [&options](IAudioDevice& device) {
                 if (!device.Volume(options.value)) return false;
                 if (device.Volume() != options.value) {
                   Say(Format("volume %d is outside %d..%d: %d is set", options.value,
                              device.VolumeMin(), device.VolumeMax(), device.Volume()));
                 }
                 return true;
               });
}

int SetMute(const DeviceOptions& options) {
  return Alter(options, &IAudioDevice::IsSupportMute, "mute",
               [&options](IAudioDevice& device) { return device.Mute(options.value != 0); });
}

int SetGainControl(const DeviceOptions& options) {
  return Alter(options, &IAudioDevice::IsSupportAutoGainControl, "automatic gain control",
               [&options](IAudioDevice& device) { return device.AGC(options.value != 0); });
}

}  // namespace tessel::tool
