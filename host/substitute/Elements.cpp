// ShmSource, pipeline and application: how the Linux half of a stream is built and moved.
#include <algorithm>

#include "Element.h"
#include "FarSide.h"
#include "quill/Debug.h"
#include "quill/Factory.h"
#include "quill/IClass.h"

namespace quill::stream {

using base::AttrSet;
using Status = IStatus::Status;

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
  _far_side = FarSide::Current();
  if (Failed(_far_side == nullptr, "!_far_side", "no real-time side for apphd=", _handle)) {
    return false;
  }
  _session = _far_side->FindSession(ObjectHandle(_handle.c_str()), _session_name);
  return !Failed(_session == nullptr, "!_session", "no session ", _session_name,
                 " in apphd=", _handle);
}

// Makes the application over there.
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

// Over the same factory command as everything that crosses, so that it can be replaced.
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
  _media = {new Media(description), [](Media* media) { media->Release(); }};
  return Service::Open();
}

bool ShmSource::Start() {
  if (Failed(!_far_side->IsAlive(), "!_far_side->IsAlive()", "Close() and Open() again")) {
    return false;
  }
  AttrSet answer;
  return Command("tesselStatus", "play", answer) && Service::Start();
}

bool ShmSource::Stop() {
  _session->Halt();
  Service::Stop();
  AttrSet answer;
  return !_far_side->IsAlive() || Command("tesselStatus", "ready", answer);
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
  if (!_handle.empty() && _far_side != nullptr && _far_side->IsAlive()) {
    Command("tesselDestroy", nullptr, answer);
  }
  _handle.clear();
  _session.reset();
}

bool Pipeline::configure(AttrSet& set) {
  const char* layout = set.Get("layout");
  if (Failed(layout == nullptr, "!layout")) return false;
  std::vector<base::LayoutElement> elements;
  std::string error;
  if (Failed(!base::ParseLayout(layout, elements, error), "!ParseLayout(layout)", error)) {
    return false;
  }
  Element* upstream = nullptr;
  for (base::LayoutElement& description : elements) {
    description.params.Add("type", description.class_name);
    auto* element = dynamic_cast<Element*>(create(description.params));
    if (Failed(element == nullptr, "!element", description.class_name)) return false;
    if (upstream != nullptr) element->Attach(*upstream);
    upstream = element;
  }
  set.Remove("layout");
  return fromAttrSet(set);
}

std::vector<Service*> Pipeline::InFlow() const {
  std::vector<Service*> order;
  foreach ([&](base::object& child) {
    if (auto* service = dynamic_cast<Service*>(&child)) order.push_back(service);
    return true;
  })
    ;
  return order;
}

std::vector<Service*> Pipeline::AgainstFlow() const {
  std::vector<Service*> order = InFlow();
  std::reverse(order.begin(), order.end());
  return order;
}

// All or nothing: those that went up before one that did not are taken down again.
bool Pipeline::Up(const std::vector<Service*>& order, Step step, Step undo) const {
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (step(*order[i])) continue;
    while (i-- > 0) undo(*order[i]);
    return false;
  }
  return true;
}

// All of them, whatever one says: nothing may be left behind half alive.
bool Pipeline::Down(const std::vector<Service*>& order, Step step) const {
  bool done = true;
  for (Service* service : order) done = step(*service) && done;
  return done;
}

namespace {

bool ToNull(Service& service) { return service.StatusDown(Status::kNull); }
bool ToReady(Service& service) {
  return service.CurrStatus() <= Status::kReady || service.StatusDown(Status::kReady);
}
bool UpToReady(Service& service) { return service.StatusUp(Status::kReady); }
bool UpToPlay(Service& service) { return service.StatusUp(Status::kPlay); }

}  // namespace

bool Pipeline::Open() { return Up(InFlow(), &UpToReady, &ToNull) && Service::Open(); }

// The sink first: what the source sends has somewhere to go.
bool Pipeline::Start() { return Up(AgainstFlow(), &UpToPlay, &ToReady) && Service::Start(); }

void Pipeline::afterStatusUp(Status target) {
  if (target != Status::kPlay) return;
  foreach ([](base::object& child) {
    if (auto* element = dynamic_cast<Element*>(&child)) element->Playing();
    return true;
  })
    ;
}

bool Pipeline::Stop() {
  Service::Stop();
  return Down(InFlow(), &ToReady);
}

bool Pipeline::Close() {
  Service::Close();
  return Down(InFlow(), &ToNull);
}

Application::Application() {
  const auto add = [this](const char* name, bool up) {
    const auto move = [this, up](base::object*, const std::string& word) {
      Status target = Status::kNull;
      if (Failed(!StatusFromName(word.c_str(), target), "!StatusFromName(word)", word))
        return false;
      if (up ? CurrStatus() >= target : CurrStatus() <= target) return true;
      return up ? StatusUp(target) : StatusDown(target);
    };
    AddProperty(std::make_unique<base::TProperty<std::string>>(name, nullptr, move));
  };
  add("statusup", true);
  add("statusdown", false);
  AddProperty(std::make_unique<base::TProperty<const char*>>(
      "status", [this](const base::object*, const char*& name) {
        name = StatusName(CurrStatus());
        return true;
      }));
}

bool Application::configure(AttrSet& set) {
  const char* layout = set.Get("layout");
  if (Failed(layout == nullptr, "!layout")) return false;
  AttrSet description;
  if (Failed(!description.Parse(layout), "!description.Parse(layout)", description.Error())) {
    return false;
  }
  if (create(description) == nullptr) return false;
  const char* wanted = set.Get("status");
  return wanted == nullptr || SetStr("statusup", wanted);
}

}  // namespace quill::stream
