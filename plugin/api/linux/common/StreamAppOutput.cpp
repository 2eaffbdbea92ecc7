#include "StreamAppOutput.h"

#include <typeinfo>

#include "quill/Debug.h"

namespace tessel::dualos {

using api::streaming::common::TextCallback;
using quill::base::Orient;
using quill::stream::Failed;
using quill::stream::IMedia;
using quill::stream::Packet;
using quill::stream::Trace;

namespace {

// The payload stays where the real-time side wrote it; the frame releases one hold of `pkt`. The
// lambda fits into std::function without memory of its own, so a frame costs one allocation.
void Fill(StreamAppOutput::frame_t& frame, Packet* pkt) {
  frame.seq = pkt->Sequence();
  frame.data = pkt->Data();
  frame.size = pkt->Size();
  frame.isKey = pkt->IsKey();
  frame.timestamp = pkt->Time();
  frame.release = [pkt] { pkt->Release(); };
}

}  // namespace

StreamAppOutput::StreamAppOutput(bool pullMode) : _pullmode(pullMode), _func("FuncSink") {
  Trace("StreamAppOutput");
  _func.open = [this](object* sink, IMedia*& media) { return CbOpen(sink, media); };
  _func.close = [this] { return CbClose(); };
  _func.output = [this](Packet*& pkt) { return CbOutput(pkt); };
}

// Destroys the application before the callbacks that its sink calls.
StreamAppOutput::~StreamAppOutput() {
  if (_app != nullptr) StreamApp::Close();
}

std::string StreamAppOutput::AppStringCreate1(void* app0) {
  quill::base::ostream_string layout;
  layout << "type=pipeline,layout={ShmSource:name=shmsrc,session_name=" << _session_name
         << ",apphd=" << app0 << ",init=true+" << _func.name
         << ":name=funcsink,pullMode=" << (_pullmode ? "true" : "false") << "}";
  Trace("", layout.str());
  return layout.str();
}

bool StreamAppOutput::CbOpen(object* sink, IMedia* media) {
  Trace("");
  // Common to all sources. Each source reads the fields of its own record in its override.
  if (media != nullptr) _mediaInfo = media->ToString();
  _sink = sink;
  if (Failed(!_sink, "!_sink")) return false;
  if (!_pullmode) return true;
  if (Failed(!_sink->Get("funcPullBlocking", _funcPull),
             "!_sink->Get(\"funcPullBlocking\",_funcPull)")) {
    return false;
  }
  return !Failed(!_funcPull, "!_funcPull");
}

bool StreamAppOutput::CbClose() {
  _sink = nullptr;
  return true;
}

bool StreamAppOutput::CbOutput(Packet* pkt) {
  if (Failed(!pkt, "!pkt")) return false;
  if (!_funcOutput) return true;
  pkt->Hold();  // the host releases its own hold when this returns
  auto frm = std::make_shared<frame_t>();
  Fill(*frm, pkt);
  return !Failed(!_funcOutput(frm), "!_funcOutput(frm)", typeid(*this).name());
}

bool StreamAppOutput::PullFrame(std::shared_ptr<frame_t>& frame, bool blocking) {
  if (!_pullmode || !_funcPull) return false;
  Packet* pkt = _funcPull(blocking);
  if (pkt == nullptr) return false;
  frame = std::make_shared<frame_t>();
  Fill(*frame, pkt);  // takes over the hold that came with the packet
  return true;
}

bool StreamAppOutput::IsSupportedPullFrame() const { return _pullmode; }

bool StreamAppOutput::IsSupportedOutputFrameCallback() const { return !_pullmode; }

bool StreamAppOutput::RegisterOutputCallback(
    const std::function<bool(std::shared_ptr<frame_t>&)>& cb) {
  _funcOutput = cb;
  return !_pullmode;
}

std::string StreamAppOutput::GetMediaInfo() const { return _mediaInfo; }

bool StreamAppOutput::SendMessage(const char* msg) {
  if (_sink == nullptr) return false;
  return _sink->IMessageProcesser::SendMessage(msg, Orient::kSink, nullptr);
}

void StreamAppOutput::RegisterMessageCallback(const std::function<bool(const char*)>& cb) {
  _func.message = cb ? TextCallback(cb) : nullptr;
}

}  // namespace tessel::dualos
