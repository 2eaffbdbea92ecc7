// Chooses one QP for each picture so that a stream keeps to its bit rate.
//
// The QP is the same all over a picture. So limits on it hold for every block, they and the target
// can change from one picture to the next, and nothing in the encoder library has to be set up
// anew.
//
// The law: a picture of a given kind costs about  cost * 2^(-qp/6)  bits. The cost is learnt from
// the pictures before; with it a share of bits is turned into a QP. What an intra picture takes
// beyond its share is spread over the pictures that follow it, and what the law gets wrong is a
// debt that the next half second pays back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Complexity.h"

namespace tessel::rtos {

// One thread at a time.
class RateController {
 public:
  struct Target {
    int rate_bps = 0;           // bits/s, above 0
    int qp_min = 0;             // 0..51
    int qp_max = 51;            // qp_min..51
    int frames_per_second = 0;  // above 0
  };

  // `gop` pictures from one IDR picture to the next; with `all_intra` all of them are
  // intra pictures.
  RateController(int gop, bool all_intra);

  // The QP for the picture captured at `time_ns`.
  int ChooseQp(const Target& target, bool is_intra, std::int64_t time_ns,
               const Complexity& complexity);
  // The same picture was coded with `qp`, which may differ from the one chosen. Follows each
  // ChooseQp().
  void Account(int qp, std::size_t bytes);
  // Estimates what the picture would take with `qp`, in bits. The estimate is a guess, and rather
  // too high, where no picture like it was seen before.
  double ExpectedBits(int qp) const;
  bool IsGuess() const { return !_is_intra && (_is_cut || _inter_cost <= 0); }
  // Forgets what earlier pictures took too much or too little; what was learnt about costs stays.
  void ResetDebt();

 private:
  void TakeTime(const Target& target, std::int64_t time_ns);
  double EvenShare() const { return _target.rate_bps * _period_s; }
  double IntraShare() const;
  double InterShare() const;
  double IntraCost() const;
  double UnknownInterCost() const;
  double ChooseIntra() const;
  double ChooseInter() const;
  double PicturesPerWindow() const;
  double RepayPictures() const;
  double Steady() const;
  void LearnIntra(double cost);
  void LearnInter(double cost, int qp);
  void TakeChange();

  const int _gop;
  const bool _all_intra;

  Target _target;
  std::int64_t _last_time_ns = 0;
  double _elapsed_s = 0;  // from the picture before to this one
  double _period_s = 0;   // the same, smoothed: what to expect between pictures; 0: no picture yet

  // The picture at hand.
  bool _is_intra = false;
  bool _is_new_scene = false;  // what was learnt of inter pictures no longer holds
  bool _is_cut = false;        // an inter picture that will cost like an intra one
  Complexity _complexity;

  // Learnt; costs are bits at QP 0, and 0 where nothing was seen yet.
  double _intra_cost = 0;         // for each level of detail
  double _last_intra_shares = 0;  // what the last intra picture took
  double _inter_cost = 0;         // mean of recent pictures
  double _weight = 1;             // of the next inter picture in the means
  double _usual_change = 0;       // the most that recent pictures changed, fading
  double _inter_qp = 0;           // mean of recent pictures
  int _last_qp = 0;               // of the last picture that others are to stay near

  // Owed, in bits.
  double _debt = 0;          // taken beyond the plan
  double _intra_excess = 0;  // taken by intra pictures and not paid back yet
  double _repayment = 0;     // what each picture is to pay back of that
};

}  // namespace tessel::rtos
