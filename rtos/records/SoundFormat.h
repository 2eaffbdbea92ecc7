// The layout of sound samples.
#pragma once

namespace tessel::rtos {

// 16 bits a sample, channels interleaved.
struct SoundFormat {
  int rate = 0;  // samples/s of each channel
  int channels = 0;
  friend bool operator==(const SoundFormat&, const SoundFormat&) = default;
};

}  // namespace tessel::rtos
