// H.264 at a variable bit rate, of single pictures, each requested by the client.
#pragma once

#include "H264SourceVbrc.h"

namespace tessel::dualos {

class H264SourceVbrcTrigger : public H264SourceVbrc {
 public:
  explicit H264SourceVbrcTrigger(bool pullMode) : H264SourceVbrc(pullMode) {}

  bool IsSupportSingleFrameTrigger() const override { return true; }
  void Trigger() override;
  std::string AppStringCreate0() override;
};

}  // namespace tessel::dualos
