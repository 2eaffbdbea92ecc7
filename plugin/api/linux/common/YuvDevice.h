// Stores the settings of a device that delivers raw pictures.
#pragma once

#include "tessel/IYuvDevice.h"

namespace tessel::api::streaming::common {

// Client's thread.
class YuvDevice : public virtual IYuvDevice {
 public:
  void SetWidth(int pixels) override;
  void SetHeight(int pixels) override;
  void SetFormat(const char* format) override;
  void SetInterlaced(bool interlaced) override;
  void SetFrameRate(int frames_per_second) override;
  YuvMediaInfo GetYuvMediaInfo() const override;

 protected:
  YuvMediaInfo _yuv;
};

}  // namespace tessel::api::streaming::common
