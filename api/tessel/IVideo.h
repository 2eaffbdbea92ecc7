// Small interfaces that the video sources share.
#pragma once

#include "tessel/object_base.h"

namespace tessel::api::streaming::common {

class TESSEL_PUBLIC IVideo {
 public:
  virtual ~IVideo() = default;
};

// Settings are stored unchecked and take effect at the next Open(). Client's thread.
class TESSEL_PUBLIC IVideoSource : public virtual IVideo {
 public:
  virtual void SelectSensor(int index) = 0;  // no effect: the board has one sensor
  virtual void SetWidth(int pixels) = 0;
  virtual void SetHeight(int pixels) = 0;
};

// A source that can deliver single frames on request.
class TESSEL_PUBLIC ITrigger {
 public:
  virtual ~ITrigger() = default;
  virtual bool IsSupportSingleFrameTrigger() const = 0;
  // Requests one frame, at any time; no effect if the source does not support it. A request made
  // while the stream does not play is served after the next Start(). If the stream has ended,
  // Close() drops the requests not served.
  virtual void Trigger() = 0;
};

}  // namespace tessel::api::streaming::common
