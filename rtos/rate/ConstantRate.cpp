#include "ConstantRate.h"

#include <algorithm>

namespace tessel::rtos {
namespace {

constexpr int kDefaultTargetBps = 1'000'000;
constexpr int kDefaultLeastBps = 50'000;
constexpr int kDefaultMostBps = 2'000'000;
constexpr int kDefaultLeastQp = 10;
constexpr int kDefaultMostQp = 50;

}  // namespace

RateLimits LimitsOf(const RateControl& control) {
  const bool asks_for_nothing = control.bitrate_target <= 0;
  const int target = asks_for_nothing ? kDefaultTargetBps : control.bitrate_target;
  const int least =
      control.bitrate_min > 0 || !asks_for_nothing ? control.bitrate_min : kDefaultLeastBps;
  const int most = control.bitrate_max > 0 ? control.bitrate_max
                   : asks_for_nothing      ? kDefaultMostBps
                                           : target;
  int qp_min = std::clamp(control.qp_min, 0, kMostQp);
  int qp_max = std::clamp(control.qp_max, 0, kMostQp);
  if (qp_max == 0) qp_max = kDefaultMostQp;
  if (control.qp_min <= 0 && control.qp_max <= 0) qp_min = kDefaultLeastQp;
  // The ceiling is what a network behind can carry: it wins over the floor.
  return {.target_bps = std::max(1, std::min(std::max(target, least), most)),
          .least_bps = std::clamp(least, 0, most),
          .most_bps = most,
          .qp_min = std::min(qp_min, qp_max),
          .qp_max = std::max(qp_min, qp_max)};
}

int ConstantRate::ChooseQp(const PictureToCode& picture) {
  const RateLimits limits = LimitsOf(picture.control);
  return _controller.ChooseQp({.rate_bps = limits.target_bps,
                               .qp_min = limits.qp_min,
                               .qp_max = limits.qp_max,
                               .frames_per_second = picture.frames_per_second},
                              picture.is_intra, picture.time_ns, picture.complexity);
}

}  // namespace tessel::rtos
