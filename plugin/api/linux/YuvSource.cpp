#include "YuvSource.h"

#include "quill/Debug.h"

#include "common/Layout.h"

namespace tessel::dualos {

using quill::stream::Failed;
using quill::stream::Trace;

void YuvSource::SelectSensor(int index) { _sensor = index; }

std::string YuvSource::AppStringCreate0() {
  std::string layout = Layout(_yuv.width, _yuv.height, _yuv.format).ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

bool YuvSource::CbOpen(quill::base::object* sink, quill::stream::IMedia* media) {
  const char* format = nullptr;
  if (Failed(!media->Get("w", _yuv.width), "!media->Get(\"w\",_yuv.width)")) return false;
  if (Failed(!media->Get("h", _yuv.height), "!media->Get(\"h\",_yuv.height)")) return false;
  if (Failed(!media->Get("fmt", format), "!media->Get(\"fmt\",_yuv.format)")) return false;
  _yuv.format = format;
  return StreamAppOutput::CbOpen(sink, media);
}

}  // namespace tessel::dualos
