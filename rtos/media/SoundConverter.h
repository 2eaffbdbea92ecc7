// Converts sound to the asked rate, number of channels and sample layout.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "SoundFormat.h"

struct SwrContext;

namespace tessel::rtos {

// The pieces of a signal join without a seam; for that the converter keeps some samples back
// between them. One channel is copied to several, several are mixed to fewer, and levels stay: what
// is equal on all channels comes out unchanged. One thread at a time.
class SoundConverter {
 public:
  // Sample formats are values of AVSampleFormat. Null when the library refuses.
  static std::unique_ptr<SoundConverter> Create(const SoundFormat& from, int from_sample_format,
                                                const SoundFormat& to, int to_sample_format);
  // Between samples of 16 bits, interleaved.
  static std::unique_ptr<SoundConverter> Create(const SoundFormat& from, const SoundFormat& to);

  // Converts `frames` frames (one sample of each channel); null and 0 at the end of the signal give
  // the frames kept back; call that until it returns 0. There is one pointer a plane; interleaved
  // samples are one plane. Returns the frames made, at most `capacity`: frames that do not fit are
  // kept for the next call. Negative on failure.
  int Convert(const std::uint8_t* const* in, int frames, std::uint8_t* const* out, int capacity);
  // The same between whole frames of 16-bit interleaved samples; empty `in` drains.
  int Convert(std::span<const std::int16_t> in, std::span<std::int16_t> out);

  // Time from the next output sample to the next input sample, ns.
  std::int64_t DelayNs() const;
  // An upper bound on the frames that the next Convert() of `input_frames` can make.
  int MostFrames(int input_frames) const;

 private:
  struct Free {
    void operator()(SwrContext* context) const;
  };
  SoundConverter() = default;

  // Constant after Create.
  int _from_channels = 0;
  int _to_channels = 0;
  std::unique_ptr<SwrContext, Free> _context;
};

}  // namespace tessel::rtos
