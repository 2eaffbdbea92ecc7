// `tessel volume`, `tessel mute`, `tessel agc`: changes of an audio device.
#include <cstdio>
#include <vector>

#include "Arguments.h"
#include "Commands.h"
#include "Console.h"
#include "DeviceClasses.h"
#include "ErrorLog.h"

namespace tessel::tool {
namespace {

using dev::IAudioDevice;

// Changes a control of a device, and prints the device after that. Only for a real-time side that
// runs already: one that this process started would end with it, and the change with it.
class DeviceCommand : public Command {
 public:
  int Run() final;

 protected:
  // `control` is the name of what changes.
  DeviceCommand(CLI::App& tool, const char* name, const char* help, const char* footer,
                const char* control);
  virtual bool IsSupported(const IAudioDevice& device) const = 0;
  virtual bool Change(IAudioDevice& device) const = 0;

 private:
  int ChangeDevice(const DeviceClass& row) const;

  const char* const _control;
  std::string _device;  // "mic", "microphone" or "speaker"
};

DeviceCommand::DeviceCommand(CLI::App& tool, const char* name, const char* help, const char* footer,
                             const char* control)
    : Command(tool, name, help, footer), _control(control) {
  _app.add_option("DEVICE", _device, "mic or speaker")->required();
  AddRunningRtos();
}

int DeviceCommand::Run() {
  for (const DeviceClass& row : DeviceClasses()) {
    if (_device == row.kind || _device == row.short_kind) return ChangeDevice(row);
  }
  Say("no device " + Quoted(_device) + "; there are mic and speaker");
  return kWrongUsage;
}

int DeviceCommand::ChangeDevice(const DeviceClass& row) const {
  std::vector<quill::host::RtosStream> streams;
  std::string error;
  if (!quill::host::ListRtosStreams(streams, error)) {  // it starts no real-time side
    Say(error);
    return kFailed;
  }
  const Device device = OpenDevice(row);
  if (!device) return kFailed;
  if (!IsSupported(*device)) {
    Say(std::string("the ") + row.kind + " has no " + _control);
    return kFailed;
  }
  ErrorLog::Forget();
  if (!Change(*device)) {
    Say(std::string("the ") + _control + " of the " + row.kind +
        " did not change: " + ErrorLog::LastReason());
    return kFailed;
  }
  std::printf("%s: %s\n", row.kind, DeviceText(*device).c_str());
  return kDone;
}

class VolumeCommand : public DeviceCommand {
 public:
  explicit VolumeCommand(CLI::App& tool)
      : DeviceCommand(tool, "volume", "Set the volume of a device of a real-time side that runs",
                      "Example:\n  tessel volume mic 40 --rtos /tmp/board\n", "volume control") {
    AddWhole(_app, "N", -kMostCount, kMostCount, _volume,
             "Volume; brought into the device's range");
    _app.get_option("N")->required();
  }

 private:
  bool IsSupported(const IAudioDevice& device) const override {
    return device.IsSupportVolumeControl();
  }
  bool Change(IAudioDevice& device) const override {
    if (!device.Volume(_volume)) return false;
    if (device.Volume() != _volume) {
      Say(Format("volume %d is outside %d..%d: %d is set", _volume, device.VolumeMin(),
                 device.VolumeMax(), device.Volume()));
    }
    return true;
  }

  int _volume = 0;
};

class SwitchCommand : public DeviceCommand {
 protected:
  SwitchCommand(CLI::App& tool, const char* name, const char* help, const char* footer,
                const char* control)
      : DeviceCommand(tool, name, help, footer, control) {
    const auto read = [this, name](const std::string& text) {
      if (text != "on" && text != "off") Refuse(name, Quoted(text) + " is neither on nor off");
      _is_on = text == "on";
    };
    AddText(_app, "on|off", "", "Turn it on or off", read)->required();
  }

  bool _is_on = false;
};

class MuteCommand : public SwitchCommand {
 public:
  explicit MuteCommand(CLI::App& tool)
      : SwitchCommand(tool, "mute",
                      "Mute a device of a real-time side that runs; its volume goes to 0",
                      "Example:\n  tessel mute mic on --rtos /tmp/board\n", "mute") {}

 private:
  bool IsSupported(const IAudioDevice& device) const override { return device.IsSupportMute(); }
  bool Change(IAudioDevice& device) const override { return device.Mute(_is_on); }
};

class AgcCommand : public SwitchCommand {
 public:
  explicit AgcCommand(CLI::App& tool)
      : SwitchCommand(tool, "agc", "Let a device of a real-time side that runs choose its gain",
                      "Example:\n  tessel agc mic off --rtos /tmp/board\n",
                      "automatic gain control") {}

 private:
  bool IsSupported(const IAudioDevice& device) const override {
    return device.IsSupportAutoGainControl();
  }
  bool Change(IAudioDevice& device) const override { return device.AGC(_is_on); }
};

}  // namespace

std::unique_ptr<Command> AddVolume(CLI::App& tool) { return std::make_unique<VolumeCommand>(tool); }
std::unique_ptr<Command> AddMute(CLI::App& tool) { return std::make_unique<MuteCommand>(tool); }
std::unique_ptr<Command> AddAgc(CLI::App& tool) { return std::make_unique<AgcCommand>(tool); }

}  // namespace tessel::tool
