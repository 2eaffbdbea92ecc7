#include "DeviceClasses.h"

#include "tessel/IMicrophone.h"
#include "tessel/ISpeaker.h"

#include "Console.h"
#include "ErrorLog.h"
#include "Units.h"

namespace tessel::tool {
namespace {

using dev::IAudioDevice;

constexpr DeviceClass kClasses[] = {
    {"microphone", "mic", "Microphone-ApiMicrophone-dualos"},
    {"speaker", "speaker", "Speaker-ApiSpeaker-dualos"},
};

const char* OnOff(bool is_on) { return is_on ? "on" : "off"; }

}  // namespace

std::span<const DeviceClass> DeviceClasses() { return kClasses; }

std::string DeviceKind(const std::string& class_name) {
  for (const DeviceClass& row : kClasses) {
    if (class_name == row.class_name) return row.kind;
  }
  return "";
}

Device OpenDevice(const DeviceClass& row) {
  ErrorLog::Forget();
  Device device = quill::host::Create<IAudioDevice>(row.class_name);
  if (!device) Say(std::string("no ") + row.kind + ": " + ErrorLog::LastReason());
  return device;
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

}  // namespace tessel::tool
