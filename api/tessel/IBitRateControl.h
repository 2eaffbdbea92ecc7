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

// All setters are plain stores, unchecked; the encoder holds the limits and acts from its next
// frame on. The H.264 sources with a constant rate capture at the maximum frame rate; the frame
// rate itself is for those that thin their stream. Client's thread, before or after Open(). The
// order of declaration is the order of the slots.
class TESSEL_PUBLIC IBitRateControl : public virtual IEncoder {
 public:
  // How the encoder spends its bits. Selecting kConstant gives a fixed QP up; the others are kept
  // and reported, with no effect of their own yet.
  enum BitRateControl : int {
    kConstant = 1,  // hold the requested bit rate
    kVariable = 2,  // move between minimum and maximum
    kConstrainedVariable = 3,
    kAverage = 5,
    kFixedQp = 6,  // the QP set with SetQP, or rate control where that is 0
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
  virtual int GetCurrentFrameRate() const = 0;
  virtual int GetCurrentBitRate() const = 0;  // bits/s as measured by the encoder; 0 before it ran
  virtual int GetCurrentQP() const = 0;       // what SetQP stored
};

}  // namespace tessel::api::streaming::common
