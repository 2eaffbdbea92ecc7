// Limits a stream to the frame rate of the rate-control block, or to the block's minimum where that
// is higher; both may change at any time. The captures nearest to an even grid of time pass, so
// frames are evenly spaced whatever the ratio of the two rates.
//
//   FrameDroper   vbrc   address of the rate-control block; required
//                 name   any text; only for people
#pragma once

#include <cstdint>

#include "Element.h"

namespace tessel::rtos {

// With a rate of 0, or one not below that of the captures, everything passes.
class FrameDroper : public Element {
 public:
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  Verdict Admit(const Unit& unit) override;
  Verdict Process(Unit& unit) override;

 private:
  std::int64_t DueNs(int rate) const;

  int _rate = 0;                // frames/s of the grid; 0: there is no grid
  std::int64_t _anchor_ns = 0;  // a point of the grid, CLOCK_MONOTONIC
  std::int64_t _steps = 0;      // from there to the next frame due
  std::int64_t _last_ns = 0;    // of the last frame passed
};

}  // namespace tessel::rtos
