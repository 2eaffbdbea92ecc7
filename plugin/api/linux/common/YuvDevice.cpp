#include "YuvDevice.h"

namespace tessel::api::streaming::common {

void YuvDevice::SetWidth(int pixels) { _yuv.width = pixels; }
void YuvDevice::SetHeight(int pixels) { _yuv.height = pixels; }
void YuvDevice::SetFormat(const char* format) {
  if (format != nullptr) _yuv.format = format;
}
void YuvDevice::SetInterlaced(bool interlaced) { _yuv.interlaced = interlaced; }
void YuvDevice::SetFrameRate(int frames_per_second) { _yuv.frameRate = frames_per_second; }
YuvMediaInfo YuvDevice::GetYuvMediaInfo() const { return _yuv; }

}  // namespace tessel::api::streaming::common
