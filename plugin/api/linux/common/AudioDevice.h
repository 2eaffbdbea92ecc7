// Stores the properties and controls of an audio device.
#pragma once

#include <cstdint>

#include "tessel/IAudioDevice.h"

namespace tessel::dev {

// Setters store their value unchecked. Client's thread. Declaration order is the order of the
// vtable and of the members.
class AudioDevice : public virtual IAudioDevice {
 public:
  int DeviceID() const override { return _id; }
  int Rate() const override { return _rate; }
  int Channels() const override { return _channels; }
  int Depth() const override { return _depth; }
  int Width() const override { return (_depth + 7) >> 3; }
  bool IsSupportVolumeControl() const override { return _canVolume; }
  bool Volume(int volume) override { return Store(_volume, volume); }
  int Volume() const override { return _volume; }
  int VolumeMax() const override { return _volumeMax; }
  int VolumeMin() const override { return _volumeMin; }
  bool IsSupportAutoGainControl() const override { return _canAGC; }
  bool AGC(bool is_on) override { return Store(_agc, is_on); }
  bool AGC() const override { return _agc; }
  bool IsSupportMute() const override { return _canMute; }
  bool Mute(bool is_muted) override { return Store(_mute, is_muted); }
  bool Mute() const override { return _mute; }
  bool IsSupportGain() const override { return _canGain; }
  bool Gain(int gain) override { return Store(_gain, gain); }
  int Gain() const override { return _gain; }
  int GainMax() const override { return _gainMax; }
  int GainMin() const override { return _gainMin; }

  virtual bool Rate(int samples_per_second) { return Store(_rate, samples_per_second); }
  virtual bool Channels(int channels) { return Store(_channels, channels); }
  virtual bool Depth(int bits) { return Store(_depth, bits); }
  virtual bool VolumeMax(int volume) { return Store(_volumeMax, volume); }
  virtual bool VolumeMin(int volume) { return Store(_volumeMin, volume); }

 protected:
  std::int32_t _id = 1;
  std::int32_t _rate = 16000;  // samples/s
  std::int32_t _channels = 1;
  std::int32_t _depth = 16;  // bits
  bool _canVolume = false;
  std::int32_t _volume = 32;
  std::int32_t _volumeMax = 100;
  std::int32_t _volumeMin = 0;
  bool _canAGC = false;
  bool _agc = false;
  bool _canMute = false;
  bool _mute = false;
  bool _canGain = true;
  std::int32_t _gain = 24;
  std::int32_t _gainMin = 0;
  std::int32_t _gainMax = 255;

 private:
  template <typename Value>
  static bool Store(Value& member, Value value) {
    member = value;
    return true;
  }
};

}  // namespace tessel::dev
