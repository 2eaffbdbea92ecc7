#include "RateController.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace tessel::rtos {
namespace {

constexpr double kWindowS = 2.0;   // the rate is judged over windows of this length
constexpr double kPaybackS = 0.5;  // a debt is paid back in about this time
constexpr double kMemoryS = 0.4;   // what a picture costs is learnt over this time
// Bounds of debt and credit, as time at the target rate; what goes beyond is forgotten. Credit is
// kept small, or a still scene would earn the next one a burst.
constexpr double kMostDebtS = 1.0;
constexpr double kMostCreditS = 0.15;
constexpr double kMostPeriodS = 1.0;  // a longer gap, as behind a trigger, earns no more bits
constexpr double kLeastShare = 0.15;  // of the even share, however much has to be paid back
constexpr double kCutRatio = 3.0;     // a picture that changed by so much more is a cut
constexpr int kMostQpStep = 4;  // from one inter picture to the next, so that errors do not swing
constexpr double kIntraQpBonus = 2;  // intra pictures are referred to, which is worth finer steps
// Bits of an intra picture at QP 0 for each level of detail, before any was seen. Measured were 3.5
// to 5.
constexpr double kFirstIntraCost = 5;
constexpr double kMostIntraPart = 0.35;  // of a GOP's bits, at most, for the picture that begins it
// By how much of a window's bits one intra picture may put that window out.
constexpr double kMostUnevenness = 0.06;

constexpr double kFastWeight = 0.3;   // of a picture that is worth learning from at once
constexpr double kRareWeight = 0.5;   // of an intra picture among others
constexpr double kWeightDecay = 0.7;  // from the first picture's weight to the steady one

double CostAt(double bits, double qp) { return bits * std::exp2(qp / 6); }
double QpFor(double cost, double bits) { return 6 * std::log2(std::max(cost, 1.0) / bits); }

}  // namespace

RateController::RateController(int gop, bool all_intra)
    : _gop(gop), _all_intra(all_intra || gop == 1) {}

int RateController::ChooseQp(const Target& target, bool is_intra, std::int64_t time_ns,
                             const Complexity& complexity) {
  if (target.rate_bps != _target.rate_bps) {
    ResetDebt();
    // The QP is about to move far. What pictures cost out there is learnt fast.
    _weight = std::max(_weight, kFastWeight);
  }
  TakeTime(target, time_ns);
  _target = target;
  _is_intra = is_intra;
  _is_new_scene = _usual_change > 0 && complexity.change > kCutRatio * _usual_change;
  _is_cut = _is_new_scene && !is_intra;
  _complexity = complexity;
  const double qp = is_intra && !_all_intra ? ChooseIntra() : ChooseInter();
  return std::clamp(static_cast<int>(std::lround(qp)), target.qp_min, target.qp_max);
}

void RateController::TakeTime(const Target& target, std::int64_t time_ns) {
  const double asked_s = 1.0 / target.frames_per_second;
  const bool is_new_rate = _period_s <= 0 || target.frames_per_second != _target.frames_per_second;
  const double since_s = static_cast<double>(time_ns - _last_time_ns) * 1e-9;
  _elapsed_s = _period_s <= 0 ? asked_s : std::clamp(since_s, 0.0, kMostPeriodS);
  // Captures jitter; a QP that followed that would flicker.
  _period_s = is_new_rate ? asked_s : _period_s + 0.1 * (_elapsed_s - _period_s);
  _last_time_ns = time_ns;
}

double RateController::PicturesPerWindow() const { return std::max(1.0, kWindowS / _period_s); }

double RateController::RepayPictures() const {
  const double pictures = PicturesPerWindow();
  return _gop <= pictures && _inter_cost > 0 ? _gop : std::min<double>(_gop, pictures / 2);
}

double RateController::Steady() const { return std::min(1.0, _period_s / kMemoryS); }

double RateController::IntraShare() const {
  const double pictures = PicturesPerWindow();
  // Where every window holds the same number of intra pictures, only what one of them takes more
  // than the last one puts a window out.
  const bool is_even = std::lround(pictures) % _gop == 0;
  const double part = std::min(kMostIntraPart * std::min<double>(_gop, pictures),
                               kMostUnevenness * pictures + (is_even ? _last_intra_shares : 0));
  const double share = EvenShare();
  return std::max(share, share * (1 + part) - std::max(0.0, _debt) - std::max(0.0, _intra_excess));
}

double RateController::InterShare() const {
  const double payback = _debt * std::min(1.0, _period_s / kPaybackS);
  return std::max(EvenShare() * kLeastShare, EvenShare() - _repayment - payback);
}

double RateController::IntraCost() const {
  return (_intra_cost > 0 ? _intra_cost : kFirstIntraCost) * _complexity.detail;
}

// Without history: what has not changed costs next to nothing, the rest as in an intra
// picture.
double RateController::UnknownInterCost() const {
  return IntraCost() * _complexity.change / _complexity.detail;
}

double RateController::ChooseIntra() const {
  const double least = QpFor(IntraCost(), IntraShare());
  return _inter_cost > 0 ? std::max(least, _inter_qp - kIntraQpBonus) : least;
}

double RateController::ChooseInter() const {
  if (_all_intra && _intra_cost <= 0) return QpFor(IntraCost(), InterShare());
  if (!_all_intra && _inter_cost <= 0) {
    return QpFor(UnknownInterCost(), _is_cut ? IntraShare() : InterShare());
  }
  const double cost = _all_intra ? IntraCost() : _inter_cost;
  const double qp =
      std::clamp<double>(QpFor(cost, InterShare()), _last_qp - kMostQpStep, _last_qp + kMostQpStep);
  return _is_cut ? std::max(qp, QpFor(UnknownInterCost(), IntraShare())) : qp;
}

double RateController::ExpectedBits(int qp) const {
  // The longer nothing was seen, the more has changed.
  const double gap = std::max(1.0, _elapsed_s / _period_s);
  const double inter_cost = IsGuess() ? UnknownInterCost() : _inter_cost * gap;
  return (_is_intra ? IntraCost() : inter_cost) * std::exp2(-qp / 6.0);
}

void RateController::Account(int qp, std::size_t bytes) {
  const double bits = static_cast<double>(bytes) * 8;
  const double share = _target.rate_bps * _elapsed_s;
  const bool is_large = (_is_intra && !_all_intra) || _is_cut;
  if (is_large) {
    _intra_excess += bits - share;
    _repayment = _intra_excess / RepayPictures();
  } else {
    const double paid = _intra_excess > 0 ? std::clamp(_repayment, 0.0, _intra_excess)
                                          : std::clamp(_repayment, _intra_excess, 0.0);
    _intra_excess -= paid;
    if (paid == 0) _repayment = 0;
    _debt += bits - (share - paid);
    _debt = std::clamp(_debt, -kMostCreditS * _target.rate_bps, kMostDebtS * _target.rate_bps);
  }
  if (_is_intra) _last_intra_shares = bits / EvenShare();
  if (_is_intra) LearnIntra(CostAt(bits, qp) / _complexity.detail);
  if (!_is_intra && !_is_cut) LearnInter(CostAt(bits, qp), qp);
  if (_is_new_scene) _inter_cost = 0;
  TakeChange();
  if (!is_large || _last_qp == 0) _last_qp = qp;
}

void RateController::LearnIntra(double cost) {
  const double weight = _intra_cost <= 0 ? 1 : _all_intra ? Steady() : kRareWeight;
  _intra_cost += weight * (cost - _intra_cost);
}

void RateController::LearnInter(double cost, int qp) {
  if (_inter_cost <= 0) _weight = 1;
  // Pictures that grow put the rate at risk; that is believed sooner than that they shrink.
  const double weight = cost > 2 * _inter_cost ? std::max(_weight, kFastWeight) : _weight;
  _inter_cost += weight * (cost - _inter_cost);
  _inter_qp += _weight * (qp - _inter_qp);
  _weight = std::max(Steady(), _weight * kWeightDecay);
}

// Rises at once and falls slowly, so that a picture repeated now and then, as slower inputs have
// it, does not make the next one look like a cut.
void RateController::TakeChange() {
  const double fallen = _usual_change + Steady() * (_complexity.change - _usual_change);
  _usual_change = std::max(_complexity.change, fallen);
}

void RateController::ResetDebt() { _debt = _intra_excess = _repayment = 0; }

}  // namespace tessel::rtos
