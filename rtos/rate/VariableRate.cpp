#include "VariableRate.h"

#include <algorithm>
#include <cmath>

#include "Clock.h"

namespace tessel::rtos {
namespace {

constexpr double kWindowS = 2.0;  // over any such time the rate stays below the greatest one
// The controller at the greatest rate aims at this part of it. The rest covers its errors, and
// windows that begin and end with an intra picture.
constexpr double kCeilingPart = 0.85;
// Of what a window has left, for one picture. An inter picture takes several times what is expected
// where a scene begins unnoticed; without that it stays far below these parts.
constexpr double kInterRoom = 0.15;
constexpr double kIntraRoom = 0.4;
constexpr double kSafeWindow = 0.97;  // of a full window, what may be planned for

constexpr int kMostFinerSteps = 4;   // from one picture to the next
constexpr double kIntraQpBonus = 2;  // intra pictures are referred to, which is worth finer steps
// Bits a second of a moving scene at QP 0 for each level of detail; what the quality begins with.
// Measured were 4 to 18 at 30 frames/s, and 2 to 3 in still scenes. It depends little on the frame
// rate, as fewer pictures differ more.
constexpr double kMovingCost = 10;
constexpr std::int64_t kBeginNs = kSecondNs;  // cameras deliver black pictures at first

constexpr double kMostCreditS = 10;
// QP steps for each second of the target taken or left beyond the credit.
constexpr double kRise = 0.5;
constexpr double kFall = 0.5;
constexpr double kCatchUp = 0.3;  // the same, for each step by which the quality is out of reach

}  // namespace

int VariableRate::ChooseQp(const PictureToCode& picture) {
  const RateLimits limits = LimitsOf(picture.control);
  // A new target moves the quality at once, by the law of the controllers.
  if (_limits.target_bps > 0) {
    _quality_qp += 6 * std::log2(static_cast<double>(_limits.target_bps) / limits.target_bps);
  }
  _limits = limits;
  Begin(picture);
  _quality_qp = std::clamp<double>(_quality_qp, limits.qp_min, limits.qp_max);

  const auto ask = [&](RateController& controller, double rate_bps) {
    return controller.ChooseQp({.rate_bps = std::max(1, static_cast<int>(rate_bps)),
                                .qp_min = limits.qp_min,
                                .qp_max = limits.qp_max,
                                .frames_per_second = picture.frames_per_second},
                               picture.is_intra, picture.time_ns, picture.complexity);
  };
  const int lowest_qp = ask(_ceiling, kCeilingPart * limits.most_bps);
  const int highest_qp = ask(_floor, limits.least_bps);
  const double wanted_qp = picture.is_intra ? _quality_qp - kIntraQpBonus : _quality_qp;
  const int quality_qp = std::max(limits.qp_min, static_cast<int>(std::lround(wanted_qp)));
  int qp = std::min(quality_qp, highest_qp);
  // A guess is rather too high: it would blur the first picture of a scene that has room enough.
  if (!_ceiling.IsGuess()) qp = std::max(qp, lowest_qp);
  // A picture much finer than the one it refers to would have to code all of the detail again.
  if (!picture.is_intra) qp = std::max(qp, std::min(_last_qp - kMostFinerSteps, limits.qp_max));
  _chosen_qp = RaiseToFitWindow(picture, qp);
  _raised_by = std::max(0, _chosen_qp - quality_qp);
  return _chosen_qp;
}

// The quality that lets a moving scene with this much detail meet the target.
void VariableRate::Begin(const PictureToCode& picture) {
  if (_last_time_ns == 0) _first_time_ns = picture.time_ns;
  if (picture.time_ns - _first_time_ns > kBeginNs) return;
  const double cost_a_second = kMovingCost * picture.complexity.detail;
  _quality_qp = std::max(_quality_qp, 6 * std::log2(cost_a_second / _limits.target_bps));
}

int VariableRate::RaiseToFitWindow(const PictureToCode& picture, int qp) {
  // Half a picture longer: both ends count, and captures jitter.
  const double window_s = kWindowS + 0.5 / picture.frames_per_second;
  const std::int64_t begin_ns = picture.time_ns - static_cast<std::int64_t>(window_s * kSecondNs);
  while (!_window.empty() && _window.front().time_ns < begin_ns) {
    _window_bits -= _window.front().bits;
    _window.pop_front();
  }
  const double room = kSafeWindow * kWindowS * _limits.most_bps - _window_bits;
  const double most_bits = (picture.is_intra ? kIntraRoom : kInterRoom) * room;
  while (qp < _limits.qp_max && _ceiling.ExpectedBits(qp) > most_bits) ++qp;
  return qp;
}

void VariableRate::Account(const PictureToCode& picture, int qp, std::size_t size_bytes) {
  const double bits = static_cast<double>(size_bytes) * 8;
  _ceiling.Account(qp, size_bytes);
  _floor.Account(qp, size_bytes);
  _window.push_back({picture.time_ns, bits});
  _window_bits += bits;
  const auto since_ns = static_cast<double>(picture.time_ns - _last_time_ns);
  const double share_s =
      _last_time_ns == 0 ? 1.0 / picture.frames_per_second : since_ns / kSecondNs;
  _last_time_ns = picture.time_ns;
  _last_qp = qp;
  // A QP that somebody else has set says nothing about the quality.
  if (qp == _chosen_qp) MoveQuality(share_s, bits / _limits.target_bps);
}

void VariableRate::MoveQuality(double share_s, double taken_s) {
  _credit_s += share_s - taken_s;
  if (_credit_s < 0) _quality_qp -= (kRise + kCatchUp * _raised_by) * _credit_s;
  // Bits saved because the greatest rate forbade them are no reason to spend more.
  if (_credit_s > kMostCreditS && _raised_by == 0) {
    // A scene that takes little says little about what the next one needs.
    const double weight = std::min(1.0, _window_bits / (kWindowS * _limits.target_bps));
    _quality_qp -= kFall * weight * weight * (_credit_s - kMostCreditS);
  }
  _credit_s = std::clamp(_credit_s, 0.0, kMostCreditS);
}

void VariableRate::ResetDebt() {
  _ceiling.ResetDebt();
  _floor.ResetDebt();
}

}  // namespace tessel::rtos
