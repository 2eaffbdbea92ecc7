// Controls an encoder while it runs.
#pragma once

#include <vector>

#include "tessel/object_base.h"

namespace tessel::api::streaming::common {

class TESSEL_PUBLIC IEncoder {
 public:
  // Requested bit rate in bits/s. Client's thread.
  virtual void SetBitRate(int bits_per_second) = 0;

 protected:
  ~IEncoder() = default;  // never deleted through this interface
};

// Setters store their value unchecked. An H.264 encoder applies it from its next frame on and keeps
// within the limits; a JPEG encoder applies only the QP. The camera captures at the maximum frame
// rate. The frame rate itself affects only the variable-rate sources, which drop captures to meet
// it. Client's thread, before or after Open(). Declaration order is vtable order.
class TESSEL_PUBLIC IBitRateControl : public virtual IEncoder {
 public:
  // Rate-control modes. Selecting kConstant sets the QP to 0; selecting another mode has no effect.
  // The class of the source decides whether the bit rate is constant or variable.
  enum BitRateControl : int {
    kConstant = 1,  // hold the requested bit rate
    kVariable = 2,  // move between minimum and maximum
    kConstrainedVariable = 3,
    kAverage = 5,
    kFixedQp = 6,  // the QP set with SetQP(), or rate control if that is 0
  };

  virtual ~IBitRateControl() = default;

  virtual std::vector<BitRateControl> BitRateControlSupportedList() const = 0;
  virtual bool IsSupport(BitRateControl brc) const = 0;
  virtual bool SelectBitRateControl(BitRateControl brc) = 0;
  virtual void SetFrameRate(int frames_per_second) = 0;
  virtual void SetFrameRateMinimum(int frames_per_second) = 0;
  virtual void SetFrameRateMaximum(int frames_per_second) = 0;
  virtual void SetBitRateMinimum(int bits_per_second) = 0;
  virtual void SetBitRateMaximum(int bits_per_second) = 0;
  virtual void SetQP(int qp) = 0;  // 0: rate control decides
  virtual void SetQPMinimum(int qp) = 0;
  virtual void SetQPMaximum(int qp) = 0;
  virtual int GetCurrentFrameRate() const = 0;  // what SetFrameRate() stored
  // The bit rate over the last second in bits/s, as the encoder measured it; 0 during the first
  // second and while the stream does not play.
  virtual int GetCurrentBitRate() const = 0;
  virtual int GetCurrentQP() const = 0;  // what SetQP() stored
};

}  // namespace tessel::api::streaming::common
