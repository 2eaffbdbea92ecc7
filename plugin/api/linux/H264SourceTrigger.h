// H.264 of single pictures, each requested by the client.
#pragma once

#include "H264Source.h"

namespace tessel::dualos {

class H264SourceTrigger : public H264Source {
 public:
  explicit H264SourceTrigger(bool pullMode) : H264Source(pullMode) {}

  bool IsSupportSingleFrameTrigger() const override { return true; }
  void Trigger() override;
  std::string AppStringCreate0() override;
};

}  // namespace tessel::dualos
