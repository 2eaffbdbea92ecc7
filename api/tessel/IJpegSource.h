// A source of JPEG pictures.
#pragma once

#include <cstdint>

#include "tessel/IBitRateControl.h"
#include "tessel/IStreamOutput.h"
#include "tessel/IVideo.h"

namespace tessel::api::streaming {

namespace common {

// The requested size before Open(), the delivered size afterwards.
struct JpegMediaInfo {
  std::int32_t width;   // pixels
  std::int32_t height;  // pixels
};

}  // namespace common

// Each frame is one whole JFIF picture. The only encoder setting that has an effect is the QP; at 0
// the encoder decides.
class TESSEL_PUBLIC IJpegSource : public virtual common::IStreamOutput,
                                  public virtual common::IBitRateControl,
                                  public virtual common::IVideoSource,
                                  public virtual common::ITrigger {
 public:
  virtual common::JpegMediaInfo GetJpegMediaInfo() const = 0;
};

}  // namespace tessel::api::streaming
