// What the microphone captures: a tone, a media file or a sound card.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "SoundFormat.h"

namespace tessel::rtos {

// One thread at a time.
class SoundInput {
 public:
  enum class Step {
    kSamples,     // `samples` is full
    kNothingYet,  // a sound card has not captured that many yet; nothing is lost
    kEnd,         // the input is over; `samples` was not touched
    kFailed,      // Error() says why
  };

  virtual ~SoundInput() = default;

  // Fills `samples`, a whole number of frames (one sample of each channel), with the next ones. At
  // the end of a file the last block is filled up with silence. `time_ns` (CLOCK_MONOTONIC) is when
  // the first one is heard: given, but for a sound card, which says it itself.
  virtual Step Read(std::span<std::int16_t> samples, std::int64_t& time_ns) = 0;
  // Call right after opening: if a file's pictures begin before its sound, silence comes first for
  // that time, in the first pass.
  virtual void KeepLead() {}
  // The chain begins, or begins again, to read: drops what a sound card has captured meanwhile.
  virtual void Start() {}
  // Whether the samples come at a pace of their own, and Read() may answer kNothingYet.
  virtual bool IsDevice() const { return false; }

  const std::string& Error() const { return _error; }

 protected:
  std::string _error;
};

}  // namespace tessel::rtos
