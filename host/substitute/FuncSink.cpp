// The end of a pipeline: hands packets to functions, on a thread of its own or on request.
#include "Element.h"
#include "quill/Debug.h"

namespace quill::stream {

// What the pull function reaches: it may be called long after the sink is gone.
struct FuncSink::Port {
  std::mutex mutex;
  std::shared_ptr<Session> session;  // guarded by mutex; null while closed

  Packet* Pull(bool blocking) {
    std::shared_ptr<Session> current;
    {
      const std::lock_guard lock(mutex);
      current = session;
    }
    return current == nullptr ? nullptr : current->Pull(blocking);
  }
};

FuncSink::FuncSink(OpenFunction open, CloseFunction close, OutputFunction output,
                   MessageFunction message)
    : _open(std::move(open)),
      _close(std::move(close)),
      _output(std::move(output)),
      _message(std::move(message)),
      _port(std::make_shared<Port>()) {}

FuncSink::~FuncSink() { Close(); }

bool FuncSink::configure(base::AttrSet& set) {
  if (const char* mode = set.Get("pullMode")) {
    if (Failed(!base::ConvertToImpl(mode, _pull_mode), "!ConvertToImpl(pullMode)", mode)) {
      return false;
    }
    set.Remove("pullMode");
  }
  if (_pull_mode) {
    using PullFunction = std::function<Packet*(bool)>;
    AddProperty(std::make_unique<base::TProperty<PullFunction>>(
        "funcPullBlocking", [port = _port](const base::object*, PullFunction& function) {
          function = [port](bool blocking) { return port->Pull(blocking); };
          return true;
        }));
  }
  return fromAttrSet(set);
}

bool FuncSink::Open() {
  if (Failed(Upstream() == nullptr, "!Upstream()", "a sink needs a source")) return false;
  _session = Upstream()->Output();
  _media = Upstream()->OutputMedia();
  if (Failed(_session == nullptr || _media == nullptr, "!_session", "the source is not open")) {
    return false;
  }
  {
    const std::lock_guard lock(_port->mutex);
    _port->session = _session;
  }
  _session->Listen([message = _message](const std::string& text) {
    if (!message) return;
    auto* note = new base::Message(text.c_str(), nullptr);
    message(*note);
    note->Release();
  });
  _is_open = true;
  IMedia* media = _media.get();
  if (!_open || _open(this, media)) return Element::Open();
  Close();
  return false;
}

bool FuncSink::Start() {
  _thread.Join();  // before it could find something to take
  _session->Play();
  const auto output = [output = _output](Packet& packet) {
    Packet* lent = &packet;
    if (output) output(lent);
  };
  if (!_pull_mode && !_thread.Start(_session, output, OwnerCallbacks())) return false;
  return Element::Start();
}

void FuncSink::Playing() { _thread.Release(); }

bool FuncSink::Pause() {
  _session->Pause();
  return Element::Pause();
}

bool FuncSink::Resume() {
  _session->Resume();
  return Element::Resume();
}

bool FuncSink::Stop() {
  if (_session != nullptr) _session->Halt();
  _thread.Join();
  return Element::Stop();
}

bool FuncSink::Close() {
  if (!_is_open) return Element::Close();
  _is_open = false;
  Stop();
  _session->Listen(nullptr);
  {
    const std::lock_guard lock(_port->mutex);
    _port->session.reset();
  }
  _session.reset();
  const bool done = !_close || _close();
  _media.reset();
  return Element::Close() && done;
}

bool FuncSink::processMessage(base::Message& message) {
  if (_message && _message(message)) return true;
  return Element::processMessage(message);
}

}  // namespace quill::stream
