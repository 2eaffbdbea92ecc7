// `tessel devices`: the microphone and the speaker.
#include <cstdio>

#include "Commands.h"
#include "Console.h"
#include "DeviceClasses.h"

#include <nlohmann/json.hpp>

namespace tessel::tool {
namespace {

using dev::IAudioDevice;

nlohmann::ordered_json Describe(const DeviceClass& row, const IAudioDevice& device) {
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

class DevicesCommand : public Command {
 public:
  explicit DevicesCommand(CLI::App& tool);
  int Run() override;

 private:
  bool _json = false;  // a line a device
};

DevicesCommand::DevicesCommand(CLI::App& tool)
    : Command(tool, "devices", "Show the board's microphone and speaker and their controls",
              "Examples:\n  tessel devices --board telephone\n"
              "  tessel devices --json --rtos /tmp/board\n") {
  _app.add_flag("--json", _json, "One JSON line a device");
  AddRtos();
  AddBoard();
}

int DevicesCommand::Run() {
  int exit_code = kDone;
  for (const DeviceClass& row : DeviceClasses()) {
    const Device device = OpenDevice(row);
    if (!device) {
      exit_code = kFailed;
    } else if (_json) {
      std::printf("%s\n", Describe(row, *device).dump().c_str());
    } else {
      std::printf("%-12s%s\n", row.kind, DeviceText(*device).c_str());
    }
  }
  return exit_code;
}

}  // namespace

std::unique_ptr<Command> AddDevices(CLI::App& tool) {
  return std::make_unique<DevicesCommand>(tool);
}

}  // namespace tessel::tool
