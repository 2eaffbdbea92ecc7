// The board's sound filter, "PcmFilter": brings the samples to the asked rate and channel count.
//
//   rate   8000..48000 samples/s of each channel; absent: as it comes
//   ch     1..2; absent: as it comes
//
// Where both are as they come, samples pass untouched. One channel of two is their mean, two of one
// are copies. Each unit is made of one block of the source, 20 ms of it. Where the rates differ,
// the number of its samples varies by one when they do not divide, and the first unit is the
// shorter by what the converter keeps back, and gives at the end of the input; the time of each is
// that of its own first sample.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "Element.h"
#include "SoundConverter.h"

namespace tessel::rtos {

class PcmFilter : public Element {
 public:
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  void Start() override;
  Verdict Process(Unit& unit) override;
  bool KeepsBack() const override { return _is_used && !_is_drained; }
  // Gives what the converter keeps back.
  Verdict Drain(Unit& unit) override;

 private:
  void Describe(Media& media) const;
  // Makes `unit` of samples that begin at `time_ns`; none: of what is kept back. kNeedMore: nothing
  // came of them.
  Verdict Convert(std::span<const std::int16_t> samples, std::int64_t time_ns, Unit& unit);
  // Brings the samples into the slot, unless an encoder fills it or there is none.
  Verdict Write(Unit& unit);

  // Constant after Open.
  SoundFormat _from;
  SoundFormat _to;
  bool _is_converting = false;
  bool _is_last = false;  // no encoder follows

  // Chain's thread, once open.
  std::unique_ptr<SoundConverter> _converter;
  bool _is_used = false;               // the converter has seen samples
  bool _is_drained = false;            // it has given up what it kept
  std::vector<std::int16_t> _samples;  // of the unit
  std::int64_t _next_ns = 0;           // time of the next input sample
};

}  // namespace tessel::rtos
