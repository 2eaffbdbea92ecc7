// Holds the picture quality of a stream steady and lets its bit rate move inside limits.
//
// Between its limits the stream is coded with a QP that moves slowly, the quality. Bits that a
// still scene saves are kept as a credit of a few seconds, and a busy scene spends them; only bits
// spent or saved beyond the credit move the quality. So the rate meets the target in the long run
// and swings about it in the short run.
//
// Two controllers run beside it, one at the greatest rate and one at the least; they give the
// lowest and the highest QP of each picture. In addition, a picture may take only a part of the
// bits that the last two seconds have left of the greatest rate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "ConstantRate.h"
#include "RateController.h"

namespace tessel::rtos {

// One thread.
class VariableRate : public QpPolicy {
 public:
  // The arguments are those of RateController.
  VariableRate(int gop, bool all_intra) : _ceiling(gop, all_intra), _floor(gop, all_intra) {}

  int ChooseQp(const PictureToCode& picture) override;
  void Account(const PictureToCode& picture, int qp, std::size_t size_bytes) override;
  void ResetDebt() override;

 private:
  struct Entry {
    std::int64_t time_ns;
    double bits;
  };

  void Begin(const PictureToCode& picture);
  int RaiseToFitWindow(const PictureToCode& picture, int qp);
  void MoveQuality(double share_s, double taken_s);

  RateController _ceiling;  // near the greatest rate
  RateController _floor;    // at the least rate
  RateLimits _limits = {};
  double _quality_qp = 0;
  double _credit_s = 0;  // left of the target, as time at that rate

  std::deque<Entry> _window;  // pictures of the last two seconds
  double _window_bits = 0;    // sum of _window

  // The picture at hand.
  int _chosen_qp = 0;
  int _raised_by = 0;  // above the quality, where the rate forbids more

  int _last_qp = 0;  // of the picture before
  std::int64_t _first_time_ns = 0;
  std::int64_t _last_time_ns = 0;  // 0: no picture yet
};

}  // namespace tessel::rtos
