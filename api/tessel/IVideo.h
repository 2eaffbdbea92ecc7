// Small interfaces that the video sources share.
#pragma once

#include "tessel/object_base.h"

namespace tessel::api::streaming::common {

class TESSEL_PUBLIC IVideo {
 public:
  virtual ~IVideo() = default;
};

// Settings are stored unchecked and act at the next Open(). Client's thread.
class TESSEL_PUBLIC IVideoSource : public virtual IVideo {
 public:
  virtual void SelectSensor(int index) = 0;  // no effect: the board has one sensor
  virtual void SetWidth(int pixels) = 0;
  virtual void SetHeight(int pixels) = 0;
};

// Sources that let single frames through on request.
class TESSEL_PUBLIC ITrigger {
 public:
  virtual ~ITrigger() = default;
  virtual bool IsSupportSingleFrameTrigger() const = 0;
  // Asks for one frame, at any time; no effect where not supported. A request made while nothing
  // plays is served by the next Start(). Once a stream has ended, those not served are dropped at
  // its Close().
  virtual void Trigger() = 0;
};

}  // namespace tessel::api::streaming::common
