// An H.264 source.
#pragma once

#include "tessel/H264MediaInfo.h"
#include "tessel/IBitRateControl.h"
#include "tessel/IStreamOutput.h"
#include "tessel/IVideo.h"

namespace tessel::api::streaming {

namespace common {

class TESSEL_PUBLIC IH264 {
 public:
  virtual ~IH264() = default;
  virtual void SetGop(int frames) = 0;
  virtual void SetGopType(const char* pattern) = 0;  // e.g. "IPPP"; copied
  virtual H264MediaInfo GetH264MediaInfo() const = 0;
  // Makes the next captured picture an IDR picture. May be called at any time, playing or not.
  virtual void ForceKeyFrame() = 0;
};

}  // namespace common

class TESSEL_PUBLIC IH264Source : public virtual common::IStreamOutput,
                                  public virtual common::IBitRateControl,
                                  public virtual common::IVideoSource,
                                  public virtual common::ITrigger,
                                  public virtual common::IH264 {};

}  // namespace tessel::api::streaming
