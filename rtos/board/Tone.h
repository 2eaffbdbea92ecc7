// The sound of a board without a microphone. A listener and a program can tell whether samples were
// lost, whether channels were swapped, and whether sound and picture are in step.
//
//   sample i, all channels     0.25  sin(2 pi HZ i / rate), for ever
//   second channel, on top     0.125 sin(2 pi HZ/2 i / rate)
//   with beeps, on top, all    0.25  sin(2 pi 3000 s), s in seconds since the last whole second of
//                              CLOCK_MONOTONIC, while s < 0.1; 1 ms raised cosine at either edge
//
// 1 is full scale. i counts samples read, whatever their time; s goes by the time stamp of each
// block, so a beep is heard while the test pattern's lamp is lit.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "SoundInput.h"

namespace tessel::rtos {

class Tone : public SoundInput {
 public:
  static constexpr int kDefaultHz = 1000;
  static constexpr int kBeepHz = 3000;

  // REQUIRES: `hz`, and with beeps theirs, lies above 0 and below half the rate.
  Tone(int hz, bool has_beeps, const SoundFormat& format);

  Step Read(std::span<std::int16_t> samples, std::int64_t& time_ns) override;

 private:
  double Beep(std::int64_t since_second_ns) const;

  const int _hz;
  const bool _has_beeps;
  const SoundFormat _format;
  std::uint64_t _index = 0;  // of the next sample
};

}  // namespace tessel::rtos
