// The settings of a device that delivers raw pictures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tessel/IVideo.h"

namespace tessel::api::streaming::common {

// Width, height and format are the request before Open() and the delivered values afterwards.
// Open() does not change the other fields. No field is derived from another.
struct YuvMediaInfo {
  std::int32_t width = 1920;      // pixels
  std::int32_t height = 1080;     // pixels
  std::string format = "420V50";  // pixel format, by its name on the real-time side
  bool interlaced = false;
  std::int32_t bufferSize = 2764800;  // bytes of one frame of the synthetic source
  std::int32_t frameRate = 30;        // frames/s
};
using YuvMediaInfoList = std::vector<YuvMediaInfo>;

// Settings are stored unchecked; the next Open() fails if the camera cannot deliver them. Width,
// height and format take effect at the next Open(), interlacing never does. Client's thread.
// Declaration order is vtable order.
class TESSEL_PUBLIC IYuvDevice : public virtual IVideo {
 public:
  virtual void SetWidth(int pixels) = 0;
  virtual void SetHeight(int pixels) = 0;
  virtual void SetFormat(const char* format) = 0;  // copied
  virtual void SetInterlaced(bool interlaced) = 0;
  // Takes effect at once on the synthetic source. No effect on the others, which capture 30
  // pictures a second.
  virtual void SetFrameRate(int frames_per_second) = 0;
  virtual YuvMediaInfo GetYuvMediaInfo() const = 0;
};

}  // namespace tessel::api::streaming::common
