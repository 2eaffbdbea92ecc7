#include "JpegSnap.h"

#include <algorithm>

#include "quill/Debug.h"
#include "quill/Hash.h"

#include "common/Layout.h"
#include "common/StatusChange.h"

namespace tessel::dualos {

using quill::base::Hash;
using quill::stream::Failed;
using quill::stream::kUrlOwner;
using quill::stream::kYellow;
using quill::stream::Trace;
using quill::stream::TraceIn;
using quill::stream::VbrcBlock;

namespace {

constexpr int kExtraBytes = 1024;  // after the fixed part, for a URL and its NUL
constexpr int kRoomBytes = static_cast<int>(sizeof(VbrcBlock::extra)) + kExtraBytes;
constexpr auto kRelaxed = std::memory_order_relaxed;

}  // namespace

JpegSnap::JpegSnap() : StreamVbrc(kExtraBytes) {
  if (_vbrc != nullptr) _vbrc->extra_user.store(Hash(kUrlOwner), kRelaxed);
}

// Closes first, because no message may reach the object during its destruction.
JpegSnap::~JpegSnap() {
  if (_app != nullptr) StreamApp::Close();
}

void JpegSnap::RegisterMessageCallback(const std::function<bool(const char*)>&) {}
bool JpegSnap::SendMessage(const char*) { return false; }

void JpegSnap::SelectSensor(int index) { _sensor = index; }
void JpegSnap::SetWidth(int pixels) { _width = pixels; }
void JpegSnap::SetHeight(int pixels) { _height = pixels; }
void JpegSnap::SetURL(const char* url) {
  if (url != nullptr) _url = url;
}
void JpegSnap::ForceKeyFrame() {}

void JpegSnap::SetQP(int qp) { Store(&VbrcBlock::qp, qp); }

int JpegSnap::GetQP() const { return _vbrc == nullptr ? 0 : _vbrc->qp_reported.load(kRelaxed); }

std::string JpegSnap::AppStringCreate0() {
  if (Failed(!_vbrc, "!_vbrc")) return "";
  std::string layout =
      Layout(*_vbrc, _width, _height).FrameTrigger().SnapEncoder().ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

std::string JpegSnap::AppStringCreate1(void* apphd) {
  const std::string vbrc = quill::base::ToString<const void*>(_vbrc);
  quill::base::ostream_string layout;
  layout << "type=pipeline,layout={ShmSource:name=shmsrc,session_name=" << _session_name
         << ",apphd=" << apphd
         << ",init=true+IOSinkPerFrame:name=fifo,dbg=true,newFrame=true,"
            "sendmsg={iosink={oper=AfterOpen,send={upward}},"
            "newframe={oper=AfterClose,send={upward}}},"
            "urlLayout={type=UrlSimple,vbrc="
         << vbrc << "},vbrc=" << vbrc << ",vbrcidx=0}";
  return layout.str();
}

bool JpegSnap::Open() {
  const auto change = StatusChange::Up(*this, Status::kReady);
  if (!change) return false;
  if (_app == nullptr) _outcome.Begin();
  return StreamApp::Open();
}

bool JpegSnap::Close() {
  const auto change = StatusChange::Down(*this, Status::kNull);
  if (!change) return true;
  const bool done = StreamApp::Close();
  if (_app == nullptr) _outcome.Begin();  // requests made from now on wait for the next Open()
  return done;
}

// The URL as it stands in the extra area.
std::string JpegSnap::StoredUrl() const {
  std::string url(_url.size(), '\0');
  std::uint8_t* extra = ExtraArea(*_vbrc);
  for (char& letter : url) letter = static_cast<char>(std::atomic_ref(*extra++).load(kRelaxed));
  return url;
}

// Writes the URL into the block's extra area, where the sink reads it. The sink may be reading
// there for an earlier snapshot, so the length is 0 meanwhile and each byte is stored atomically.
void JpegSnap::StoreUrl() {
  // Each release publishes the stores before it and pairs with an acquire in the sink.
  constexpr auto kRelease = std::memory_order_release;
  _vbrc->extra_len.store(0, kRelaxed);
  std::uint8_t* extra = ExtraArea(*_vbrc);
  for (std::size_t i = 0; i <= _url.size(); ++i) {
    std::atomic_ref(extra[i]).store(static_cast<std::uint8_t>(_url.c_str()[i]), kRelease);
  }
  _vbrc->extra_len.store(static_cast<std::int32_t>(_url.size() + 1), kRelease);
}

// Whether the count of files has reached `target`. The count wraps around.
bool JpegSnap::HasFile(std::uint32_t target) const {
  const auto done = static_cast<std::uint32_t>(_vbrc->frame_count.load(std::memory_order_acquire));
  return static_cast<std::int32_t>(done - target) >= 0;
}

bool JpegSnap::Snap(bool blocking) {
  VbrcBlock* vbrc = _vbrc;
  if (Failed(!vbrc, "!vbrc")) return false;
  const std::int32_t extra_max = vbrc->extra_max.load(kRelaxed);
  if (Failed(extra_max == 0, "!vbrc->extra_max")) return false;
  if (Failed(vbrc->extra_user.load(kRelaxed) != Hash(kUrlOwner),
             "vbrc->extra_user!=(void*)::Hash(\"UrlSimple\")")) {
    return false;
  }
  const std::size_t len = _url.size();
  TraceIn(kYellow, "len=", static_cast<long long>(len));
  // The word is shared and may be wrong; the block has no more room than was allocated.
  const std::int32_t room = std::clamp(extra_max, 0, kRoomBytes);
  if (Failed(static_cast<std::size_t>(room) < len + 1, "vbrc->extra_max<len+1")) return false;
  StoreUrl();
  TraceIn(kYellow, "(void*)vbrc=", static_cast<const void*>(vbrc));
  TraceIn(kYellow, "_url=", _url);
  TraceIn(kYellow, "(char*)vbrc->extra=", StoredUrl());

  const std::uint32_t ends = _outcome.Ends();
  const auto done = static_cast<std::uint32_t>(vbrc->frame_count.load(std::memory_order_acquire));
  // Release: the URL is stored before the request.
  const auto request =
      static_cast<std::uint32_t>(vbrc->trigger_req.fetch_add(1, std::memory_order_release)) + 1;
  const auto is_done = [&] { return !blocking || !Enable() || HasFile(done + 1); };
  return !Failed(!_outcome.Await(request, ends, is_done), "!file", _url);
}

void JpegSnap::Snap(const char* url, bool blocking) {
  if (url == nullptr) return;
  JpegSnap::SetURL(url);
  Snap(blocking);
}

bool JpegSnap::processMessage(quill::base::Message& message) {
  _outcome.OnMessage(message);
  return StreamApp::processMessage(message);
}

}  // namespace tessel::dualos
