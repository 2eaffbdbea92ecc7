// A source of raw pictures.
#pragma once

#include "tessel/IStreamOutput.h"
#include "tessel/IYuvDevice.h"

namespace tessel::api::streaming {

// Each frame is one picture; its planes follow one another without gaps. Declaration order is
// vtable order, after the functions of IStreamControl and IStreamOutput.
//
// The synthetic source ("ApiYuvSource-dualos-push-fake", "-pull-fake") delivers frames without
// pictures: their bytes are never written. It ignores the control state, and its Open() and Close()
// do nothing. In push mode it delivers from Start() to Stop(), even while paused; in pull mode
// PullFrame() returns a frame at any time. Call its Start() and Stop() from one thread at a time,
// or from the callback. Its Start() ends the process if it is called in the callback, or a second
// time without a Stop().
class TESSEL_PUBLIC IYuvSource : public virtual common::IStreamOutput,
                                 public virtual common::IYuvDevice {
 public:
  virtual void SelectSensor(int index) = 0;  // no effect: the board has one sensor
  void SetFrameRate(int frames_per_second) override = 0;
  bool Open() override = 0;
  bool Close() override = 0;
  bool Start() override = 0;
  bool Stop() override = 0;
};

}  // namespace tessel::api::streaming
