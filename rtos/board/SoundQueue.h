// Turns decoded sound, in pieces of any size and format, into blocks of the asked size and format.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "SoundConverter.h"
#include "SoundFormat.h"

struct AVFrame;

namespace tessel::rtos {

// One thread at a time.
class SoundQueue {
 public:
  // Samples come out as `format` says.
  explicit SoundQueue(const SoundFormat& format) : _format(format) {}

  // Adds a decoded piece, which joins the last one without a seam. False when it cannot be
  // converted, or claims less than 4000 or more than 768000 samples/s.
  [[nodiscard]] bool Add(const AVFrame& frame);
  // No more pieces follow: adds the samples that the converter has kept back.
  [[nodiscard]] bool Finish();

  // Forgets everything.
  void Clear();

  // Samples of all channels that can be taken.
  std::size_t Size() const { return _samples.size() - _taken; }
  // Moves the front of the queue into `samples` and returns how many they were.
  std::size_t Take(std::span<std::int16_t> samples);
  // Time from the front to the sample that would be added next, ns.
  std::int64_t LengthNs() const;

 private:
  bool Convert(const std::uint8_t* const* in, int frames);

  const SoundFormat _format;
  SoundFormat _from;  // of the pieces; a file may change it
  int _from_sample_format = -1;
  std::unique_ptr<SoundConverter> _converter;
  std::vector<std::int16_t> _samples;
  std::size_t _taken = 0;  // of _samples
};

}  // namespace tessel::rtos
