// A source of JPEG pictures.
#pragma once

#include <cstdint>

#include "tessel/IBitRateControl.h"
#include "tessel/IStreamOutput.h"
#include "tessel/IVideo.h"

namespace tessel::api::streaming {

namespace common {

// As asked before Open() and as delivered after it.
struct JpegMediaInfo {
  std::int32_t width;   // pixels
  std::int32_t height;  // pixels
};

}  // namespace common

// Each frame is one whole picture (JFIF). Of the rate control, the quantiser counts: 0 leaves it to
// the encoder.
class TESSEL_PUBLIC IJpegSource : public virtual common::IStreamOutput,
                                  public virtual common::IBitRateControl,
                                  public virtual common::IVideoSource,
                                  public virtual common::ITrigger {
 public:
  virtual common::JpegMediaInfo GetJpegMediaInfo() const = 0;
};

}  // namespace tessel::api::streaming
