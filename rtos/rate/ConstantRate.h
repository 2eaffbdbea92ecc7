// Keeps a stream at the bit rate that its rate-control block asks for.
#pragma once

#include "QpPolicy.h"
#include "RateController.h"

namespace tessel::rtos {

// What the rate-control block asks for, made consistent: a 0 is replaced by the default (1 Mbit/s,
// 50 kbit/s to 2 Mbit/s, QP 10 to 50), and limits in the wrong order are put right.
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
  // The arguments are those of RateController.
  ConstantRate(int gop, bool all_intra) : _controller(gop, all_intra) {}

  int ChooseQp(const PictureToCode& picture) override;
  void Account(const PictureToCode&, int qp, std::size_t size_bytes) override {
    _controller.Account(qp, size_bytes);
  }
  void ResetDebt() override { _controller.ResetDebt(); }

 private:
  RateController _controller;
};

}  // namespace tessel::rtos
