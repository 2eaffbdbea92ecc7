#include "JpegSourceTrigger.h"

#include "quill/Debug.h"

#include "common/Layout.h"

namespace tessel::dualos {

using quill::stream::Failed;
using quill::stream::Trace;
using quill::stream::VbrcBlock;

void JpegSourceTrigger::Trigger() {
  Trace("");
  Request(&VbrcBlock::trigger_req);
}

std::string JpegSourceTrigger::AppStringCreate0() {
  if (Failed(!_vbrc, "!_vbrc")) return "";
  std::string layout =
      Layout(*_vbrc, _jpeg.width, _jpeg.height).FrameTrigger().JpegEncoder().ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

}  // namespace tessel::dualos
