// H.264 of steady quality, at a variable bit rate and a frame rate that can be reduced.
#pragma once

#include "H264Source.h"

namespace tessel::dualos {

class H264SourceVbrc : public H264Source {
 public:
  explicit H264SourceVbrc(bool pullMode);

  std::string AppStringCreate0() override;
};

}  // namespace tessel::dualos
