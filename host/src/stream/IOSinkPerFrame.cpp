#include "IOSinkPerFrame.h"

#include <algorithm>
#include <span>

#include "AtomicFile.h"
#include "quill/Debug.h"
#include "quill/Host.h"
#include "quill/VbrcBlock.h"

namespace quill::stream {

using base::AttrSet;

namespace {

AttrSet Inner(const AttrSet& set, const char* key) {
  const char* text = set.Get(key);
  return AttrSet(text == nullptr ? "" : text);
}

// Leaves `is_on` alone when the key is absent.
bool ReadSwitch(const AttrSet& set, const char* key, bool& is_on) {
  const char* text = set.Get(key);
  return text == nullptr ||
         !Failed(!base::ConvertToImpl(text, is_on), "!ConvertToImpl(text,is_on)", key, "=", text);
}

// A message's text. What cannot be written in it is left out.
std::string TextOf(const std::string& name, const AttrSet& body) {
  return name + ":" + body.ToString(false);
}

}  // namespace

bool IOSinkPerFrame::configure(AttrSet& set) {
  std::string error;
  _urls = UrlLayout::Create(Inner(set, "urlLayout"), error);
  if (Failed(_urls == nullptr, "!urlLayout", error)) return false;
  if (!ReadNotices(Inner(set, "sendmsg"))) return false;
  bool has_new_frame = false;
  if (!ReadSwitch(set, "newFrame", has_new_frame) || !ReadSwitch(set, "dbg", _is_chatty)) {
    return false;
  }
  const bool is_listed = std::any_of(_notices.begin(), _notices.end(), [](const Notice& notice) {
    return notice.name == "newframe";
  });
  if (has_new_frame && !is_listed) _notices.push_back({"newframe", true});
  int index = 0;
  if (Failed(set.Get("vbrcidx") != nullptr && (!set.Get("vbrcidx", index) || index != 0),
             "!vbrcidx", "there is one count, 0")) {
    return false;
  }
  if (const char* address = set.Get("vbrc")) {
    _counted = Window::BlockAt(address);
    if (Failed(_counted == nullptr || _counted->Vbrc() == nullptr, "!vbrc",
               "no rate-control block at ", address))
      return false;
  }
  for (const char* key : {"urlLayout", "sendmsg", "newFrame", "dbg", "vbrc", "vbrcidx"}) {
    set.Remove(key);
  }
  return fromAttrSet(set);
}

bool IOSinkPerFrame::ReadNotices(const AttrSet& notices) {
  for (const auto& [name, text] : notices.Pairs()) {
    const AttrSet notice(text.c_str());
    const char* word = notice.Get("oper");
    const std::string moment = word == nullptr ? "" : word;
    const char* way = notice.Get("send");
    const bool is_known = (moment == "AfterOpen" || moment == "AfterClose") && way != nullptr &&
                          std::string(way) == "upward";
    if (Failed(!is_known, "!sendmsg", name, "={", text, "}")) return false;
    _notices.push_back({name, moment == "AfterClose"});
  }
  return true;
}

void IOSinkPerFrame::OnPacket(Packet& packet) {
  std::string url;
  std::string error;
  if (!_urls->Next(url, error) || !Write(url, packet, error)) {
    return PostFailure(url, error, packet);
  }
  CountFile();
  if (_is_chatty) Trace("", url, ", ", packet.Size(), " bytes");
  Post(true, url, packet);
}

bool IOSinkPerFrame::Write(const std::string& url, const Packet& packet, std::string& error) {
  std::string path;
  if (!host::ReadFileUrl(url, path, error)) return false;
  auto file = AtomicFile::Open(path, error);
  if (!file) return false;
  Post(false, url, packet);
  return file->Finish(std::span(packet.Data(), packet.Size()), error);
}

void IOSinkPerFrame::CountFile() const {
  if (_counted == nullptr) return;
  // Pairs with the acquire of the thread that waits for the file.
  _counted->Vbrc()->frame_count.fetch_add(1, std::memory_order_release);
}

void IOSinkPerFrame::Post(bool after_close, const std::string& url, const Packet& packet) {
  for (const Notice& notice : _notices) {
    if (notice.after_close != after_close) continue;
    AttrSet body;
    body.Add("url", url);
    if (after_close) body.Add("size", packet.Size());
    SendMessage(TextOf(notice.name, body).c_str(), base::Orient::kOwners, notice.name.c_str());
  }
}

void IOSinkPerFrame::PostFailure(const std::string& url, const std::string& reason,
                                 const Packet& packet) {
  Fail("!Write(url,packet)", url, url.empty() ? "" : ": ", reason);
  AttrSet body;
  if (!url.empty()) body.Add("url", url);
  body.Add("reason", reason);
  // Packets come in the order of the requests, each for one.
  const auto* counted = dynamic_cast<const SessionPacket*>(&packet);
  body.Add("request", _requests_before + (counted == nullptr ? 0 : counted->Count()));
  SendMessage(TextOf("failed", body).c_str(), base::Orient::kOwners, "failed");
}

bool IOSinkPerFrame::Open() {
  if (!SessionSink::Open()) return false;
  _requests_before = Upstream()->RequestsBefore();
  return true;
}

bool IOSinkPerFrame::Start() {
  {
    const std::lock_guard lock(_end_mutex);
    _is_writing = true;
  }
  if (SessionSink::Start()) return true;
  EndWriting();
  return false;
}

bool IOSinkPerFrame::Stop() {
  const bool done = SessionSink::Stop();
  EndWriting();
  return done;
}

void IOSinkPerFrame::OnDrained() { EndWriting(); }

void IOSinkPerFrame::OnMessage(const std::string& reason) {
  Fail("!packet", reason);
  {
    const std::lock_guard lock(_end_mutex);
    if (!_end_reason) _end_reason = reason;  // the first reason counts
  }
  PostEnd();
}

void IOSinkPerFrame::EndWriting() {
  {
    const std::lock_guard lock(_end_mutex);
    _is_writing = false;
  }
  PostEnd();
}

// Posts "ended" once the end is known and the last frame is written.
void IOSinkPerFrame::PostEnd() {
  std::optional<std::string> reason;
  {
    const std::lock_guard lock(_end_mutex);
    if (!_is_writing) reason.swap(_end_reason);
  }
  if (!reason) return;
  AttrSet body;
  body.Add("reason", *reason);
  SendMessage(TextOf("ended", body).c_str(), base::Orient::kOwners, "ended");
}

}  // namespace quill::stream
