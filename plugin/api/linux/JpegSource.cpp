#include "JpegSource.h"

#include "quill/Debug.h"

#include "common/Layout.h"

namespace tessel::dualos {

using quill::stream::Failed;
using quill::stream::Trace;

JpegSource::JpegSource(bool pullMode) : StreamAppOutput(pullMode), StreamVbrc(0) {
  _brcList = {kConstant, kFixedQp};
}

void JpegSource::SelectSensor(int index) { _sensor = index; }
void JpegSource::SetWidth(int pixels) { _jpeg.width = pixels; }
void JpegSource::SetHeight(int pixels) { _jpeg.height = pixels; }
JpegSource::JpegMediaInfo JpegSource::GetJpegMediaInfo() const { return _jpeg; }

bool JpegSource::IsSupportSingleFrameTrigger() const { return false; }

void JpegSource::Trigger() {}

std::string JpegSource::AppStringCreate0() {
  if (Failed(!_vbrc, "!_vbrc")) return "";
  std::string layout =
      Layout(*_vbrc, _jpeg.width, _jpeg.height).JpegEncoderDma().ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

bool JpegSource::CbOpen(quill::base::object* sink, quill::stream::IMedia* media) {
  if (Failed(!media->Get("w", _jpeg.width), "!media->Get(\"w\",_jpeg.width)")) return false;
  if (Failed(!media->Get("h", _jpeg.height), "!media->Get(\"h\",_jpeg.height)")) return false;
  return StreamAppOutput::CbOpen(sink, media);
}

}  // namespace tessel::dualos
