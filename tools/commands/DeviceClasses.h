// The classes of the audio devices, and a device as text.
#pragma once

#include <span>
#include <string>

#include "quill/Host.h"
#include "tessel/IAudioDevice.h"

namespace tessel::tool {

struct DeviceClass {
  const char* kind;
  const char* short_kind;
  const char* class_name;
};
std::span<const DeviceClass> DeviceClasses();

// What a device of that class is called; empty when objects of the class are no audio devices.
std::string DeviceKind(const std::string& class_name);

using Device = quill::host::Handle<dev::IAudioDevice>;
// Asks the real-time side for the device. Null, after an error message, when it is not available.
Device OpenDevice(const DeviceClass& row);

// "48000 Hz, 2 channels, 16 bits, volume 32 of 0..100, AGC off, ...".
std::string DeviceText(const dev::IAudioDevice& device);

}  // namespace tessel::tool
