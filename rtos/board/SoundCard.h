// Sound from an ALSA device, converted as asked.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "MediaReader.h"
#include "SoundInput.h"
#include "SoundQueue.h"

namespace tessel::rtos {

// Computes when the pieces of a steady signal began, from time stamps that jitter. One thread.
class SoundClock {
 public:
  // A piece of `duration_ns` that is stamped `stamp_ns` follows the last one. The clock
  // follows small differences slowly; where sound was lost it jumps.
  void Add(std::int64_t stamp_ns, std::int64_t duration_ns);
  // Where the last piece ends, on the clock of the stamps.
  std::int64_t EndNs() const { return _end_ns; }

 private:
  bool _has_begun = false;
  std::int64_t _end_ns = 0;
};

class SoundCard : public SoundInput {
 public:
  // Opens the ALSA device `device`; `name` is what errors call it. The device may deliver
  // another rate; if it refuses the channels of `format`, the other number is tried.
  // Null with `error` when it cannot be opened.
  static std::unique_ptr<SoundCard> Open(const std::string& device, const std::string& name,
                                         const SoundFormat& format, std::string& error);

  void Start() override;
  Step Read(std::span<std::int16_t> samples, std::int64_t& time_ns) override;
  bool IsDevice() const override { return true; }

 private:
  SoundCard(const std::string& name, const SoundFormat& format);
  bool AddFrame();

  MediaReader _reader;
  FramePtr _frame = MakeFrame();
  SoundQueue _queue;
  SoundClock _clock;  // CLOCK_MONOTONIC
};

}  // namespace tessel::rtos
