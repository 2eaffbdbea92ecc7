#include "JpegSourceTrigger.h"

#include "quill/Debug.h"

#include "common/Layout.h"

namespace tessel::dualos {

using quill::stream::Failed;
using quill::stream::Trace;

void JpegSourceTrigger::Trigger() {
  Trace("");
  if (Failed(!_vbrc, "!_vbrc")) return;
  _vbrc->trigger_req.fetch_add(1, std::memory_order_relaxed);
}

std::string JpegSourceTrigger::AppStringCreate0() {
  if (Failed(!_vbrc, "!_vbrc")) return "";
  const std::string layout =
      Layout(*_vbrc, _jpeg.width, _jpeg.height).FrameTrigger().JpegEncoder().ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

}  // namespace tessel::dualos
