// Holds a stream to the bit rate that its rate-control block asks for.
#pragma once

#include "QpPolicy.h"

namespace tessel::rtos {

// What the block asks for, with sense made of zeroes and of limits in the wrong order. Where it
// says 0, these hold: 1 Mbit/s, 50 kbit/s to 2 Mbit/s, QP 10 to 50.
struct RateLimits {
  int target_bps;  // bits/s, above 0, inside the limits
  int least_bps;   // bits/s, at most `most_bps`
  int most_bps;    // bits/s
  int qp_min;      // 0..51
  int qp_max;      // qp_min..51
};
RateLimits LimitsOf(const RateControl& control);

class ConstantRate : public QpPolicy {
 public:
  // As of RateController.
  ConstantRate(int gop, bool all_intra) : _controller(gop, all_intra) {}

  int ChooseQp(const Unit& unit, bool is_intra, const Complexity& complexity) override;
  void Account(const Unit& unit) override { _controller.Account(unit.qp, unit.size_bytes); }
  void Forgive() override { _controller.Forgive(); }

 private:
  RateController _controller;
};

}  // namespace tessel::rtos
