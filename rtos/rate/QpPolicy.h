// Decides how finely each picture of a stream is coded.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Complexity.h"
#include "RateControl.h"

namespace tessel::rtos {

// A picture before it is coded.
struct PictureToCode {
  RateControl control;
  std::int64_t time_ns = 0;   // CLOCK_MONOTONIC at capture
  int frames_per_second = 0;  // planned, above 0
  bool is_intra = false;
  Complexity complexity;
};

// Chain thread.
class QpPolicy {
 public:
  virtual ~QpPolicy() = default;

  // The QP for the picture, 0..51 and inside the limits of its control.
  virtual int ChooseQp(const PictureToCode& picture) = 0;
  // The same picture was coded with `qp`, which may differ from the one chosen, and took
  // `size_bytes`. Follows each ChooseQp().
  virtual void Account(const PictureToCode& picture, int qp, std::size_t size_bytes) = 0;
  // Forgets what earlier pictures took too much or too little; what was learnt about costs stays.
  virtual void ResetDebt() = 0;
};

}  // namespace tessel::rtos
