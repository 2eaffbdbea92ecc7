#include "H264SourceVbrc.h"

#include "quill/Debug.h"

#include "common/Layout.h"

namespace tessel::dualos {

using quill::stream::Failed;
using quill::stream::Trace;

H264SourceVbrc::H264SourceVbrc(bool pullMode) : H264Source(pullMode) {
  _brcList = {kFixedQp, kConstant, kVariable, kConstrainedVariable, kAverage};
}

std::string H264SourceVbrc::AppStringCreate0() {
  if (Failed(!_vbrc, "!_vbrc")) return "";
  std::string layout = Layout(*_vbrc, _h264.width, _h264.height)
                           .FrameDroper()
                           .H264Encoder(_h264)
                           .H264VBrc()
                           .ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

}  // namespace tessel::dualos
