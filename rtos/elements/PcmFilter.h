// The sound filter, "PcmFilter": converts sound to the asked rate and number of channels.
//
//   rate   8000..48000 samples/s of each channel; absent: as it comes in
//   ch     1..2; absent: as it comes in
//
// When neither changes, samples pass untouched. Two channels become one by their mean, one becomes
// two by copying. Each unit is made of one block of the source, 20 ms. When the rates differ, the
// number of samples of a unit varies by one where the rates do not divide, and the first unit is
// shorter: the converter keeps some samples back until the input ends. The time of a unit is that
// of its first sample.
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
  // Makes `unit` of samples that begin at `time_ns`, or of those kept back where `samples` is
  // empty. kNeedMore: there is no result yet.
  Verdict Convert(std::span<const std::int16_t> samples, std::int64_t time_ns, Unit& unit);
  // Copies the samples into the slot, unless an encoder follows or there is no slot.
  Verdict Write(Unit& unit);

  // Constant after Open.
  SoundFormat _from;
  SoundFormat _to;
  bool _is_converting = false;
  bool _is_last = false;  // no encoder follows

  // Chain thread, once open.
  std::unique_ptr<SoundConverter> _converter;
  bool _is_used = false;               // the converter has seen samples
  bool _is_drained = false;            // Drain() has given what it kept
  std::vector<std::int16_t> _samples;  // of the unit
  std::int64_t _next_ns = 0;           // time of the next input sample
};

}  // namespace tessel::rtos
