// Who decides how finely each picture of a stream is coded.
#pragma once

#include "Element.h"
#include "RateController.h"

namespace tessel::rtos {

// Chain's thread.
class QpPolicy {
 public:
  virtual ~QpPolicy() = default;

  // The QP, 0..51, for the picture at hand, inside the limits of `unit.control`.
  virtual int ChooseQp(const Unit& unit, bool is_intra, const Complexity& complexity) = 0;
  // What became of it, in `unit.qp` and `unit.size_bytes`. Follows each ChooseQp().
  virtual void Account(const Unit& unit) = 0;
  // No debts: the next picture is judged by what comes from here on. What was learnt stays.
  virtual void Forgive() = 0;
};

}  // namespace tessel::rtos
