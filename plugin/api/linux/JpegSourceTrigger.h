// Single JPEG pictures, each requested by the client.
#pragma once

#include "JpegSource.h"

namespace tessel::dualos {

class JpegSourceTrigger : public JpegSource {
 public:
  explicit JpegSourceTrigger(bool pullMode) : JpegSource(pullMode) {}

  bool IsSupportSingleFrameTrigger() const override { return true; }
  void Trigger() override;
  std::string AppStringCreate0() override;
};

}  // namespace tessel::dualos
