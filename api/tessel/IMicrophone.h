// A microphone.
#pragma once

#include "tessel/IAudioDevice.h"

namespace tessel::dev {

// If the samples stay on the real-time side, reading and device control do nothing and return 0,
// null or false; sound then comes through a source. Declaration order is vtable order.
class TESSEL_PUBLIC IMicrophone : public virtual IAudioDevice, public virtual IAudioDeviceCtrl {
 public:
  virtual int GetLeftSamples(int reader) const = 0;
  // Reads up to `capacity` samples into `samples`; `count` receives their number.
  virtual int Read(int& count, short* samples, int capacity) = 0;
  virtual int Read(int& count, int* samples, int capacity, int reader) = 0;
  virtual void* CreateReader() = 0;
  bool DevOpen() override = 0;
  bool DevClose() override = 0;
  bool DevStart() override = 0;
  bool DevStop() override = 0;
  bool DevPause() override = 0;
  bool DevResume() override = 0;
};

}  // namespace tessel::dev
