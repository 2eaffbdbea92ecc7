// What can be asked of a device that delivers raw pictures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tessel/IVideo.h"

namespace tessel::api::streaming::common {

// Width, height and format as asked before Open() and as delivered after it, the rest as asked. No
// field is derived from another.
struct YuvMediaInfo {
  std::int32_t width = 1920;          // pixels
  std::int32_t height = 1080;         // pixels
  std::string format = "420V50";      // the real-time side's name for the layout of a picture
  bool interlaced = false;            //
  std::int32_t bufferSize = 2764800;  // bytes of one frame of the synthetic source
  std::int32_t frameRate = 30;        // frames/s
};
using YuvMediaInfoList = std::vector<YuvMediaInfo>;

// Settings are stored as they are; what the camera cannot deliver makes the next Open() fail.
// Width, height and format act at the next Open(), interlacing never. Client's thread. The order of
// declaration is the order of the slots.
class TESSEL_PUBLIC IYuvDevice : public virtual IVideo {
 public:
  virtual void SetWidth(int pixels) = 0;
  virtual void SetHeight(int pixels) = 0;
  virtual void SetFormat(const char* format) = 0;  // copied
  virtual void SetInterlaced(bool interlaced) = 0;
  // Of the synthetic source, at once; else no effect: raw pictures are captured at 30 a second.
  virtual void SetFrameRate(int frames_per_second) = 0;
  virtual YuvMediaInfo GetYuvMediaInfo() const = 0;
};

}  // namespace tessel::api::streaming::common
