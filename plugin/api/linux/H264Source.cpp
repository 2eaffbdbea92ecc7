#include "H264Source.h"

#include "quill/Debug.h"

#include "common/Layout.h"

namespace tessel::dualos {

using quill::stream::At;
using quill::stream::Failed;
using quill::stream::Trace;

namespace {

constexpr int kStartCodeBytes = 4;  // ITU-T H.264 annex B, the long form

}  // namespace

H264Source::H264Source(bool pullMode) : StreamAppOutput(pullMode), StreamVbrc(0) {
  _h264.width = 1920;
  _h264.height = 1080;
  _h264.gop = 15;
  _h264.goptype = "IPPP";
  _h264.spsOffset = 4;
  _h264.startCodeSize = kStartCodeBytes;
  _brcList = {kConstant, kFixedQp};
}

void H264Source::SelectSensor(int index) { _sensor = index; }
void H264Source::SetWidth(int pixels) { _h264.width = pixels; }
void H264Source::SetHeight(int pixels) { _h264.height = pixels; }
void H264Source::SetGop(int frames) { _h264.gop = frames; }
void H264Source::SetGopType(const char* pattern) {
  if (pattern != nullptr) _h264.goptype = pattern;
}
H264Source::H264MediaInfo H264Source::GetH264MediaInfo() const { return _h264; }

void H264Source::ForceKeyFrame() {
  Trace("");
  Request(&quill::stream::VbrcBlock::keyframe_req);
}

bool H264Source::IsSupportSingleFrameTrigger() const { return false; }

void H264Source::Trigger() {}

std::string H264Source::AppStringCreate0() {
  // A source without its block cannot describe its chain; the empty text makes Open() fail.
  if (Failed(!_vbrc, "!_vbrc")) return "";
  std::string layout =
      Layout(*_vbrc, _h264.width, _h264.height).H264Encoder(_h264).ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

bool H264Source::CbOpen(quill::base::object* sink, quill::stream::IMedia* media) {
  Trace("CbOpen");
  int spsOffset = 0;
  int spsLength = 0;
  int ppsOffset = 0;
  int ppsLength = 0;
  const auto get = [media](const char* key, auto& out, const At& text) {
    return !Failed(!media->Get(key, out), text);
  };
  if (!get("w", _h264.width, "!media->Get(\"w\",_h264.width)")) return false;
  if (!get("h", _h264.height, "!media->Get(\"h\",_h264.height)")) return false;
  if (!get("sps", _h264.sps, "!media->Get(\"sps\",_h264.sps)")) return false;
  if (!get("spsoffset", spsOffset, "!media->Get(\"spsoffset\",spsOffset)")) return false;
  Trace("spsOffset=", spsOffset);
  if (!get("isps", spsLength, "!media->Get(\"isps\",spsLength)")) return false;
  Trace("spsLength=", spsLength);
  if (!get("pps", _h264.pps, "!media->Get(\"pps\",_h264.pps)")) return false;
  if (!get("ppsoffset", ppsOffset, "!media->Get(\"ppsoffset\",ppsOffset)")) return false;
  Trace("ppsOffset=", ppsOffset);
  if (!get("ipps", ppsLength, "!media->Get(\"ipps\",ppsLength)")) return false;
  Trace("ppsLength=", ppsLength);
  if (!get("pack", _h264.pack, "!media->Get(\"pack\",_h264.pack)")) return false;
  Trace("_h264.pack=", _h264.pack);
  if (!get("jump", _h264.cbJumpToData, "!media->Get(\"jump\",_h264.cbJumpToData)")) return false;
  if (!get("jump_bs", _h264.cbJumpToDataBs, "!media->Get(\"jump_bs\",_h264.cbJumpToDataBs)")) {
    return false;
  }
  if (!get("jump_avc", _h264.cbJumpToDataAvc, "!media->Get(\"jump_avc\",_h264.cbJumpToDataAvc)")) {
    return false;
  }
  Trace("(void*)_h264.cbJumpToData=", reinterpret_cast<const void*>(_h264.cbJumpToData));
  Trace("(void*)_h264.cbJumpToDataBs=", reinterpret_cast<const void*>(_h264.cbJumpToDataBs));
  Trace("(void*)_h264.cbJumpToDataAvc=", reinterpret_cast<const void*>(_h264.cbJumpToDataAvc));
  _h264.spsOffset = spsOffset;
  _h264.spsSize = _h264.spsLength = spsLength;
  _h264.ppsOffset = ppsOffset;
  _h264.ppsSize = _h264.ppsLength = ppsLength;
  _h264.headerSize = ppsOffset + ppsLength + kStartCodeBytes;
  _h264.startCodeSize = kStartCodeBytes;
  return StreamAppOutput::CbOpen(sink, media);
}

}  // namespace tessel::dualos
