// `tessel devices`, `tessel volume`, `tessel mute`, `tessel agc`: the audio devices of the board.
#pragma once

#include <string>

#include "tessel/IAudioDevice.h"

namespace tessel::tool {

struct DevicesOptions {
  bool json = false;  // a line a device
};
struct DeviceOptions {
  std::string device;  // "mic", "microphone" or "speaker"
  int value = 0;       // a volume; 0 and 1: off and on
};

// Shows what there is; of an own real-time side where none is named. The exit code.
int Devices(const DevicesOptions& options);

// One change of a device each, and what it has become; the exit code. Only with a real-time side
// that runs already: an own one would be gone at once, and the change with it.
int SetVolume(const DeviceOptions& options);
int SetMute(const DeviceOptions& options);
int SetGainControl(const DeviceOptions& options);

// Whether objects of that class are devices, which are found out about by asking the real-time
// side; what they are called then, else "".
std::string DeviceKind(const std::string& class_name);
// "48000 Hz, 2 channels, 16 bits, volume 32 of 0..100, AGC off, ...".
std::string DeviceText(const dev::IAudioDevice& device);

}  // namespace tessel::tool
