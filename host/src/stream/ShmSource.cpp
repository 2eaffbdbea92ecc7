#include "ShmSource.h"

#include <vector>

#include "CurrentConnection.h"
#include "quill/Debug.h"
#include "quill/Factory.h"
#include "quill/ostream_string.h"

namespace quill::stream {

using base::AttrSet;
namespace link = tessel::link;

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

link::Handle HandleOf(const std::string& text) { return {base::ReadHandle(text.c_str())}; }

}  // namespace

bool ShmSource::configure(AttrSet& set) {
  if (const char* text = set.Get("connect")) {
    AttrSet connection;
    if (Failed(!connection.Parse(text), "!connection.Parse(text)", connection.Error()))
      return false;
    for (const char* key : {"connect", "link"}) set.Remove(key);
    return ReadConnection(connection) && fromAttrSet(set);
  }
  const char* name = set.Get("session_name");
  const char* handle = set.Get("apphd");
  if (Failed(name == nullptr, "!session_name")) return false;
  if (Failed(handle == nullptr, "!apphd")) return false;
  _session_name = name;
  _handle = handle;
  for (const char* key : {"session_name", "apphd", "init"}) set.Remove(key);
  return FindSession() && fromAttrSet(set);
}

bool ShmSource::ReadConnection(const AttrSet& connection) {
  const char* name = connection.Get("name");
  const char* chain = connection.Get("serialize");
  if (Failed(name == nullptr, "!name")) return false;
  if (Failed(chain == nullptr, "!serialize")) return false;
  std::vector<base::LayoutElement> elements;
  std::string error;
  if (Failed(!base::ParseLayout(chain, elements, error), "!ParseLayout(chain)", error))
    return false;
  elements.back().params.Add("session_name", name);
  std::string layout;
  for (const base::LayoutElement& element : elements) {
    layout +=
        (layout.empty() ? "" : "+") + element.class_name + ":" + element.params.ToString(false);
  }
  _session_name = name;
  _application = "type=Application,layout={type=pipeline,layout={" + layout + "}},status=ready";
  return true;
}

bool ShmSource::FindSession() {
  _rtos = CurrentConnection::Get();
  if (Failed(_rtos == nullptr, "!_rtos", "no real-time side for apphd=", _handle)) {
    return false;
  }
  _session = _rtos->Applications().FindSession(base::ReadHandle(_handle.c_str()), _session_name);
  if (Failed(_session == nullptr, "!_session", "no session ", _session_name,
             " in apphd=", _handle)) {
    return false;
  }
  _blocks = _rtos->Applications().BlocksOf(base::ReadHandle(_handle.c_str()));
  _requests_before = 0;
  ForEachBlock([this](VbrcBlock& block) {
    _requests_before = static_cast<std::uint32_t>(block.trigger_served.load(kRelaxed));
  });
  for (base::object* each = this; each != nullptr; each = each->Parent()) {
    if (auto* service = dynamic_cast<Service*>(each)) service->DependOn(_rtos->Number());
  }
  return true;
}

void ShmSource::ForEachBlock(const std::function<void(VbrcBlock&)>& act) const {
  for (const auto& entry : _blocks) {
    const auto block = entry.lock();
    if (VbrcBlock* vbrc = block == nullptr ? nullptr : block->Vbrc()) act(*vbrc);
  }
}

// Creates the application on the real-time side.
bool ShmSource::Connect() {
  AttrSet request(_application.c_str());
  request.Add(link::kCommandKey, link::Create::kName);
  if (!base::Factory::Globle().Run("shm0_cmd", request)) return false;
  link::CreateAnswer answer;
  std::string error;
  // Goes on where only the media cannot be read: the application exists, and is asked for them.
  static_cast<void>(ReadAnswer(request, answer, error));
  if (Failed(answer.object_base.number == 0, "!handle", _session_name, ": ", error)) return false;
  _handle = base::HandleText(answer.object_base.number);
  return FindSession();
}

ShmSource::~ShmSource() { Leave(); }

// By the factory command that all requests use, so that a client can replace it.
template <typename Request>
bool ShmSource::Command(const Request& request, AttrSet& answer) {
  std::string error;
  if (Failed(!WriteRequest(request, answer, error), "!WriteRequest(request)", error)) return false;
  return base::Factory::Globle().Run("shm0_cmd", answer);
}

bool ShmSource::ChangeStatus(link::Status status) const {
  AttrSet answer;
  return Command(link::SetStatus{HandleOf(_handle), _session_name, status}, answer);
}

// The answer to the creation brings it, unless this real-time side wants to be asked.
bool ShmSource::FindMedia(AttrSet& description) const {
  const auto known = _rtos->Applications().MediaOf(base::ReadHandle(_handle.c_str()));
  if (known) {
    description = *known;
    return true;
  }
  AttrSet untrusted;
  link::MediaAnswer answer;
  std::string error;
  if (Failed(!Command(link::DescribeMedia{HandleOf(_handle), _session_name}, untrusted), "!media",
             _session_name) ||
      Failed(!ReadAnswer(untrusted, answer, error), "!description", _session_name, ": ", error)) {
    return false;
  }
  description = std::move(answer.media);
  return true;
}

bool ShmSource::Open() {
  const bool connects = !_application.empty() && _handle.empty();
  AttrSet description;
  if ((connects && !Connect()) || !FindMedia(description)) {
    if (connects) Leave();
    return false;
  }
  // Counted, so shared with a deleter that gives the count back.
  _media = {new StreamMedia(description), [](StreamMedia* media) { media->Release(); }};
  return Service::Open();
}

bool ShmSource::Start() {
  if (Failed(!_rtos->IsAlive(), "!_rtos->IsAlive()", "Close() and Open() again")) {
    return false;
  }
  return ChangeStatus(link::Status::kPlay) && Service::Start();
}

bool ShmSource::Stop() {
  _session->Halt();
  Service::Stop();
  return !_rtos->IsAlive() || ChangeStatus(link::Status::kReady);
}

bool ShmSource::Close() {
  Leave();
  return Service::Close();
}

void ShmSource::Leave() {
  if (_session != nullptr) _session->Halt();
  AttrSet answer;
  // An application that does not answer keeps its memory until it does or dies; the stream is
  // closed on this side all the same.
  if (!_handle.empty() && _rtos != nullptr && _rtos->IsAlive()) {
    Command(link::Destroy{HandleOf(_handle), _session_name}, answer);
  }
  // No chain will serve these requests, and their snapshots have failed. No chain runs that stores
  // the word, either.
  if (_session != nullptr && _session->HasEnded()) {
    ForEachBlock([](VbrcBlock& block) {
      block.trigger_served.store(block.trigger_req.load(kRelaxed), kRelaxed);
    });
  }
  _handle.clear();
  _session.reset();
}

}  // namespace quill::stream
