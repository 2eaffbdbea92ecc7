// Keeps an AAC encoder from clipping loud pure tones.
#pragma once

#include <cstdint>
#include <random>
#include <span>

namespace tessel::rtos {

// Where bits abound, the library's encoder makes the steps of a pure tone so fine that loud ones
// are clipped: a sine of full scale is decoded only 8 dB above its distortion. A soft noise in the
// frames with such peaks takes the bits. Frames that have as much noise of their own, as speech and
// music do, stay as they are. One thread.
class ToneSoftener {
 public:
  ToneSoftener() = default;
  // `bit_rate_bps` is that of all channels, `rate` in samples/s. Every softener makes the same
  // noise.
  ToneSoftener(std::int64_t bit_rate_bps, int rate);

  // Changes the samples of one channel's frame, full scale being 1.
  void Apply(std::span<float> samples);

 private:
  double _noise_rms = 0;
  std::minstd_rand _random;
  std::uniform_real_distribution<float> _noise;
};

}  // namespace tessel::rtos
