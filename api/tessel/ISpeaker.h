// A speaker.
#pragma once

#include "tessel/IAudioDevice.h"

namespace tessel::dev {

// If the samples stay on the real-time side, writing and device control do nothing and return 0 or
// false. Declaration order is vtable order.
class TESSEL_PUBLIC ISpeaker : public virtual IAudioDevice, public virtual IAudioDeviceCtrl {
 public:
  virtual int GetLeftSamples() const = 0;
  virtual int Write(short* samples, int count) = 0;
  virtual int Write(int* samples, int count, int channel) = 0;
  bool DevOpen() override = 0;
  bool DevClose() override = 0;
  bool DevStart() override = 0;
  bool DevStop() override = 0;
  bool DevPause() override = 0;
  bool DevResume() override = 0;
};

}  // namespace tessel::dev
