// An audio device of the camera: its properties, volume, automatic gain and mute.
#pragma once

#include "tessel/object_base.h"

namespace tessel::dev {

class IMicrophone;

// Setters return false when the device has no such control or the change did not reach it. Client's
// thread, one at a time for each device. Declaration order is vtable order.
class TESSEL_PUBLIC IAudioDevice {
 public:
  virtual ~IAudioDevice() = default;

  virtual int DeviceID() const = 0;
  virtual int Rate() const = 0;  // samples/s of each channel
  virtual int Channels() const = 0;
  virtual int Depth() const = 0;  // bits of a sample
  virtual int Width() const = 0;  // bytes of a sample
  virtual bool IsSupportVolumeControl() const = 0;
  virtual bool Volume(int volume) = 0;  // clamped to VolumeMin()..VolumeMax()
  virtual int Volume() const = 0;
  virtual int VolumeMax() const = 0;
  virtual int VolumeMin() const = 0;
  virtual bool IsSupportAutoGainControl() const = 0;
  virtual bool AGC(bool is_on) = 0;
  virtual bool AGC() const = 0;
  virtual bool IsSupportMute() const = 0;
  virtual bool Mute(bool is_muted) = 0;  // muting sets Volume() to 0, and unmuting leaves it there
  virtual bool Mute() const = 0;
  virtual bool IsSupportGain() const = 0;
  virtual bool Gain(int gain) = 0;  // stored only
  virtual int Gain() const = 0;
  virtual int GainMax() const = 0;
  virtual int GainMin() const = 0;

  // Returns the microphone of the back end `name` ("dualos"). The host creates it on first use and
  // owns it for the life of the process. Null when the class does not exist or the device cannot be
  // probed; the next call tries again. Any thread. The host implements this function.
  static IMicrophone* Microphone(const char* name);
};

// Declaration order is vtable order.
class TESSEL_PUBLIC IAudioDeviceCtrl {
 public:
  virtual bool DevOpen() = 0;
  virtual bool DevClose() = 0;
  virtual bool DevStart() = 0;
  virtual bool DevStop() = 0;
  virtual bool DevPause() = 0;
  virtual bool DevResume() = 0;

 protected:
  ~IAudioDeviceCtrl() = default;
};

}  // namespace tessel::dev
