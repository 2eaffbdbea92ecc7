// Steering an encoder while it runs.
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

// All setters are plain stores, unchecked. An H.264 encoder acts on them from its next frame on and
// keeps to the limits; a JPEG encoder acts on the QP alone. The camera is held to the maximum frame
// rate. The frame rate itself acts on the variable-rate sources, which thin their stream to it.
// Client's thread, before or after Open(). The order of declaration is the order of the slots.
class TESSEL_PUBLIC IBitRateControl : public virtual IEncoder {
 public:
  // How an encoder may spend its bits. Selecting kConstant sets the QP to 0; selecting another one
  // has no effect. Whether the rate is held or varies is decided by the class of the source.
  enum BitRateControl : int {
    kConstant = 1,  // hold the requested bit rate
    kVariable = 2,  // move between minimum and maximum
    kConstrainedVariable = 3,
    kAverage = 5,
    kFixedQp = 6,  // the QP set with SetQP(), or rate control where that is 0
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
  // Bits/s over the last second, as the encoder measured them; 0 before it has seen a second, and
  // while nothing plays.
  virtual int GetCurrentBitRate() const = 0;
  virtual int GetCurrentQP() const = 0;  // what SetQP() stored
};

}  // namespace tessel::api::streaming::common
