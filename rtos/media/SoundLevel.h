// The level of a microphone: its volume and its automatic gain.
#pragma once

#include <cstdint>
#include <span>

#include "SoundFormat.h"

namespace tessel::rtos {

// A change of level takes 10 ms, so it is not heard as a click; at full volume samples pass
// unchanged. The automatic gain brings the loudness, RMS over about half a second, to -20 dB of
// full scale. It changes by at most 6 dB/s, between -20 and +30 dB; sound below -60 dB counts as
// silence and leaves it as it is. Peaks that would exceed -1 dB lower it at once, from the start of
// their block. One thread.
class SoundLevel {
 public:
  explicit SoundLevel(const SoundFormat& format) : _format(format) {}

  // Starts with this volume, a factor in 0..1, without a transition.
  void Start(float volume) { _gain = _automatic * volume; }
  // Changes the next block, channels interleaved, a multiple of their number.
  void Apply(std::span<std::int16_t> samples, float volume, bool has_automatic_gain);

 private:
  float Follow(std::span<const std::int16_t> samples);

  const SoundFormat _format;
  float _gain = 1;       // at the end of the last block
  float _automatic = 1;  // its part that the automatic gain has
  double _power = 0;     // of samples where full scale is 1, smoothed; 0: nothing heard yet
};

}  // namespace tessel::rtos
