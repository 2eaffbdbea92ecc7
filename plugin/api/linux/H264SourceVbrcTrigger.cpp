#include "H264SourceVbrcTrigger.h"

#include "quill/Debug.h"

#include "common/Layout.h"

namespace tessel::dualos {

using quill::stream::Failed;
using quill::stream::Trace;
using quill::stream::VbrcBlock;

void H264SourceVbrcTrigger::Trigger() { Request(&VbrcBlock::trigger_req); }

std::string H264SourceVbrcTrigger::AppStringCreate0() {
  if (Failed(!_vbrc, "!_vbrc")) return "";
  std::string layout = Layout(*_vbrc, _h264.width, _h264.height)
                           .FrameTrigger()
                           .FrameDroper()
                           .H264Encoder(_h264)
                           .H264VBrc()
                           .ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

}  // namespace tessel::dualos
