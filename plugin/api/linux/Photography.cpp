#include "Photography.h"

#include "quill/Hash.h"

#include "common/StatusChange.h"

namespace tessel::dualos {

using api::streaming::common::TextCallback;
using quill::base::AttrSet;
using quill::base::Hash;
using quill::base::Message;
using quill::base::Orient;
using quill::stream::Failed;
using Status = quill::stream::IStatus::Status;

Photography::Photography() : VBRC(nullptr) { Photography::SetURL("file://snap.jpeg"); }

// Destroys the application before the URL that its sink reads.
Photography::~Photography() {
  if (_obj != nullptr) Photography::Close();
  Children().Delete(_obj, false);
}

void Photography::RegisterMessageCallback(const std::function<bool(const char*)>& cb) {
  _message_callback = cb ? TextCallback(cb) : nullptr;
  if (_obj != nullptr) _obj->RegisterMessageProcessCallback(_message_callback);
}

bool Photography::SendMessage(const char* text) {
  if (Failed(!_obj, "!_obj")) return false;
  return _obj->IMessageProcesser::SendMessage(text, Orient::kChildren, nullptr);
}

bool Photography::addChild(quill::base::object* child) {
  _obj = child;
  return true;
}

void Photography::SelectSensor(int index) { _sensor = index; }
void Photography::SetWidth(int pixels) { _width = pixels; }
void Photography::SetHeight(int pixels) { _height = pixels; }
void Photography::SetQP(int qp) { _qp = qp; }
int Photography::GetQP() const { return _qp; }

void Photography::SetURL(const char* url) {
  if (url != nullptr) _url.Set(std::make_unique<const std::string>(url));
}

std::string Photography::CreateUrl() {
  const std::string url = *_url.Claim();
  _url.Unclaim();
  return url;
}

std::string Photography::cbCreateUrl(void* hd) {
  if (Failed(!hd, "!hd")) return "";
  return static_cast<Photography*>(hd)->CreateUrl();
}

std::string Photography::AppStringCreate() {
  quill::base::ostream_string text;
  text << "type=Application,layout={type=pipeline,layout={ShmSource:connect={type=pipeline,"
          "serialize={pv-yuv-src-adv:w="
       << _width << ",h=" << _height
       << "+FrameTrigger:name=ftrig,vbrc=" << static_cast<const void*>(Block())
       << "+encoder-jpeg:name=enc,clock=400000,qp=" << _qp << "+FifoSink:max=2},name=plPvH264Src"
       << quill::base::UniqueString()
       << "},name=vsrc,link=null+IOSinkPerFrame:name=fifo,dbg=true,newFrame=true,"
          "urlLayout={type=UrlCallback,cb="
       << reinterpret_cast<const void*>(&cbCreateUrl) << ",hd=" << static_cast<const void*>(this)
       << "}}}";
  return text.str();
}

bool Photography::Open() {
  const auto change = StatusChange::Up(*this, Status::kReady);
  if (!change) return false;
  if (_obj == nullptr) {
    _outcome.Begin();
    AttrSet description(AppStringCreate().c_str());
    create(description);  // passes the application to addChild()
  }
  if (Failed(!_obj, "!_obj")) return false;
  _obj->RegisterMessageProcessCallback(_message_callback);
  if (Failed(!_obj->SetStr("statusup", "ready"), "!_obj->Set(\"statusup\",\"ready\")")) {
    return false;
  }
  return Service::Open();
}

bool Photography::Start() {
  _new_frames = 0;
  const auto change = StatusChange::Up(*this, Status::kPlay);
  if (!change) return false;
  if (Failed(!_obj, "!_obj")) return false;
  if (Failed(!_obj->SetStr("statusup", "play"), "!_obj->Set(\"statusup\",\"play\")")) return false;
  return Service::Start();
}

// Brings the application down to `status` and destroys it.
bool Photography::StopAt(const char* status, const quill::stream::At& condition) {
  if (_obj == nullptr) return true;
  if (Failed(!_obj->SetStr("statusdown", status), condition)) {
    // The Linux half may have stopped without an answer from the real-time side. The application
    // then plays no longer.
    const char* reached = nullptr;
    if (_obj->GetStr("status", reached) && Hash(reached) != Hash("play")) Service::Stop();
    return false;
  }
  // A stopped application may still send a message, a closed one does not. Goes on: the application
  // is destroyed even if it cannot be closed.
  static_cast<void>(_obj->SetStr("statusdown", "null"));
  Children().Delete(_obj, false);
  _outcome.Begin();  // requests made from now on wait for the next Open()
  return true;
}

bool Photography::Stop() {
  const auto change = StatusChange::Down(*this, Status::kReady);
  if (!change) return true;
  if (!StopAt("ready", "!_obj->Set(\"statusdown\",\"ready\")")) return false;
  return Service::Close();  // the application is gone, so the status is null
}

bool Photography::Close() {
  const auto change = StatusChange::Down(*this, Status::kNull);
  if (!change) return true;
  return StopAt("null", "!_obj->Set(\"statusdown\",\"null\")") && Service::Close();
}

bool Photography::Pause() {
  if (Failed(!_obj, "!_obj")) return false;
  auto* application = dynamic_cast<Service*>(_obj);
  return application != nullptr && application->Pause() && Service::Pause();
}

bool Photography::Resume() {
  if (Failed(!_obj, "!_obj")) return false;
  auto* application = dynamic_cast<Service*>(_obj);
  return application != nullptr && application->Resume() && Service::Resume();
}

bool Photography::Snap(bool blocking) {
  const std::int32_t target = _new_frames.load() + (blocking ? 1 : 0);
  const std::uint32_t ends = _outcome.Ends();
  if (Failed(Block() == nullptr, "!Block()")) return false;  // its allocation may have failed
  const auto request =
      static_cast<std::uint32_t>(Block()->trigger_req.fetch_add(1, std::memory_order_release)) + 1;
  const auto is_done = [&] { return !blocking || !Enable() || _new_frames.load() == target; };
  return !Failed(!_outcome.Await(request, ends, is_done), "!file", *_url.Newest());
}

void Photography::Snap(const char* url, bool blocking) {
  if (url == nullptr) return;
  Photography::SetURL(url);
  Snap(blocking);
}

bool Photography::processMessageNewFrame(Message&) {
  _new_frames.fetch_add(1);
  return true;
}

bool Photography::processMessage(Message& message) {
  if (_outcome.OnMessage(message)) processMessageNewFrame(message);
  return StreamControl::processMessage(message);
}

}  // namespace tessel::dualos
