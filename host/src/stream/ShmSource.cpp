#include "ShmSource.h"

#include <vector>

#include "CurrentConnection.h"
#include "quill/Debug.h"
#include "quill/Factory.h"
#include "quill/ostream_string.h"

namespace quill::stream {

using base::AttrSet;

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

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
  request.Add("cmd", "tesselCreate");
  if (!base::Factory::Globle().Run("shm0_cmd", request)) return false;
  const char* handle = request.Get("object_base");
  if (Failed(handle == nullptr, "!handle", _session_name)) return false;
  _handle = handle;
  return FindSession();
}

ShmSource::~ShmSource() { Leave(); }

// By the factory command that all requests use, so that a client can replace it.
bool ShmSource::Command(const char* command, const char* status, AttrSet& answer) const {
  answer.Add("cmd", command);
  answer.Add("object_base", _handle);
  answer.Add("session_name", _session_name);
  if (status != nullptr) answer.Add("status", status);
  return base::Factory::Globle().Run("shm0_cmd", answer);
}

bool ShmSource::Open() {
  if (!_application.empty() && _handle.empty() && !Connect()) return false;
  AttrSet answer;
  if (Failed(!Command("tesselMedia", nullptr, answer), "!media", _session_name)) return false;
  AttrSet description;
  const char* text = answer.Get("media");
  if (Failed(text == nullptr || !description.Parse(text), "!description", _session_name)) {
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
  AttrSet answer;
  return Command("tesselStatus", "play", answer) && Service::Start();
}

bool ShmSource::Stop() {
  _session->Halt();
  Service::Stop();
  AttrSet answer;
  return !_rtos->IsAlive() || Command("tesselStatus", "ready", answer);
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
    Command("tesselDestroy", nullptr, answer);
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
