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
  virtual void SelectSensor(int index) = 0;
  virtual void SetWidth(int pixels) = 0;
  virtual void SetHeight(int pixels) = 0;
};

// Sources that let single frames through on request.
class TESSEL_PUBLIC ITrigger {
 public:
  virtual ~ITrigger() = default;
  virtual bool IsSupportSingleFrameTrigger() const = 0;
  virtual void Trigger() = 0;  // no effect where not supported
};

}  // namespace tessel::api::streaming::common
