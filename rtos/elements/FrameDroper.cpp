#include "FrameDroper.h"

#include <algorithm>

#include "Clock.h"
#include "ElementParams.h"

namespace tessel::rtos {
namespace {

// 0: everything passes.
int RateToHold(const Unit& unit) {
  const int asked = unit.control.framerate <= 0
                        ? 0
                        : std::max(unit.control.framerate, unit.control.framerate_min);
  return asked > 0 && asked < unit.frames_per_second ? asked : 0;
}

}  // namespace

bool FrameDroper::Open(const Context& context, const AttrSet& params, Media&, std::string& error) {
  VbrcBlock* block = nullptr;
  return CheckKnown(params, {"name", "vbrc"}, error) && ReadBlock(context, params, block, error);
}

// A new rate counts from the last frame.
std::int64_t FrameDroper::DueNs(int rate) const {
  return rate == _rate ? _anchor_ns + _steps * kSecondNs / rate : _last_ns + kSecondNs / rate;
}

Verdict FrameDroper::Admit(const Unit& unit) {
  const int rate = RateToHold(unit);
  if (rate == 0 || _last_ns == 0) return Verdict::kPass;
  // A capture later than this one may lie nearer to the time that is due.
  const std::int64_t half_capture_ns = kSecondNs / unit.frames_per_second / 2;
  return unit.time_ns + half_capture_ns < DueNs(rate) ? Verdict::kRateLimited : Verdict::kPass;
}

Verdict FrameDroper::Process(Unit& unit) {
  const int rate = RateToHold(unit);
  if (rate > 0) {
    const bool has_grid = _rate > 0 || _last_ns > 0;
    const std::int64_t due_ns = DueNs(rate);
    // Frames that were missed are not made up for: the grid begins anew.
    const bool is_off = !has_grid || unit.time_ns - due_ns > kSecondNs / rate;
    if (is_off || rate != _rate) {
      _anchor_ns = is_off ? unit.time_ns : due_ns;
      _steps = 0;
    }
    if (++_steps == rate) {  // keeps the count small
      _anchor_ns += kSecondNs;
      _steps = 0;
    }
    unit.frames_per_second = rate;
  }
  _rate = rate;
  _last_ns = unit.time_ns;
  return Verdict::kPass;
}

}  // namespace tessel::rtos
