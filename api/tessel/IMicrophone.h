// A microphone.
#pragma once

#include "tessel/IAudioDevice.h"

namespace tessel::dev {

// Where the samples stay on the real-time side, reading and device control report that nothing was
// done: sound then comes through a source. The order of declaration is the order of the slots.
class TESSEL_PUBLIC IMicrophone : public virtual IAudioDevice, public virtual IAudioDeviceCtrl {
 public:
  virtual int GetLeftSamples(int reader) const = 0;
  // Into `samples`, of room for `capacity`; `count` says how many came.
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
