// A source of raw pictures.
#pragma once

#include "tessel/IStreamOutput.h"
#include "tessel/IYuvDevice.h"

namespace tessel::api::streaming {

// Each frame is one picture, its planes one behind the other without gaps. The order of declaration
// is the order of the slots, those of IStreamControl and IStreamOutput in front.
//
// The synthetic source ("ApiYuvSource-dualos-push-fake", "-pull-fake") carries no picture: its
// bytes are never written. The control state does not steer it, and its Open() and Close() do
// nothing: pushed, it delivers from Start() to Stop(), also while paused; PullFrame() gives a frame
// at any time. Start() and Stop() come from one thread at a time, or from the callback. There
// Start() without a Stop() since the last one, or in the callback, ends the process.
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
