// The end of a pipeline: hands packets to functions, on a thread of its own or on request.
#include "Element.h"
#include "quill/Debug.h"
#include "Threads.h"

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

// One run of the stream thread. It holds all it needs, as a callback may stop or close the stream
// under its feet.
struct FuncSink::Delivery {
  Delivery(std::shared_ptr<Session> from, OutputFunction to, std::shared_ptr<Callbacks> counted)
      : session(std::move(from)), output(std::move(to)), callbacks(std::move(counted)) {}

  void Run() {
    may_run.wait(false);
    while (!is_over.load(std::memory_order_acquire)) {
      Packet* packet = session->Pull(true);
      if (packet == nullptr) return;
      // The function adds a hold of its own for what it keeps.
      Packet* lent = packet;
      if (output) output(lent);
      packet->Release();
    }
  }

  const std::shared_ptr<Session> session;
  const OutputFunction output;
  const std::shared_ptr<Callbacks> callbacks;
  // No callback before the whole pipeline plays: one that stops the stream would cross its start.
  std::atomic<bool> may_run{false};
  std::atomic<bool> is_over{false};
  std::thread thread;

  void Release() {
    may_run.store(true, std::memory_order_release);
    may_run.notify_all();
  }
};

FuncSink::FuncSink(OpenFunction open, CloseFunction close, OutputFunction output,
                   MessageFunction message)
    : _open(std::move(open)),
      _close(std::move(close)),
      _output(std::move(output)),
      _message(std::move(message)),
      _port(std::make_shared<Port>()) {}

FuncSink::~FuncSink() {
  Close();
  // Destroyed by its own callback, which closed the stream: the thread ends by itself, and the
  // stream object waits for that.
  if (_delivery != nullptr) _delivery->thread.detach();
}

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

// Of the stream object that owns the pipeline: it must outlive what its callbacks do.
std::shared_ptr<Service::Callbacks> FuncSink::OwnerCallbacks() const {
  const base::object* owner = this;
  while (owner->Parent() != nullptr) owner = owner->Parent();
  const auto* service = dynamic_cast<const Service*>(owner);
  return service == nullptr ? GetCallbacks() : service->GetCallbacks();
}

bool FuncSink::Start() {
  JoinDelivery();
  _session->Play();
  if (!_pull_mode) {
    _delivery = std::make_shared<Delivery>(_session, _output, OwnerCallbacks());
    _delivery->callbacks->Begin();
    _delivery->thread = StartThread("tessel-stream", [run = _delivery] {
      run->Run();
      run->callbacks->End();
    });
    if (!_delivery->thread.joinable()) {
      _delivery->callbacks->End();
      _delivery.reset();
      return false;
    }
  }
  return Element::Start();
}

void FuncSink::Playing() {
  if (_delivery != nullptr) _delivery->Release();
}

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
  JoinDelivery();
  return Element::Stop();
}

// Waits for the stream thread, unless this is it: then whoever comes next does.
void FuncSink::JoinDelivery() {
  if (_delivery == nullptr) return;
  _delivery->is_over.store(true, std::memory_order_release);
  _delivery->Release();
  if (_delivery->thread.get_id() == std::this_thread::get_id()) return;
  _delivery->thread.join();
  _delivery.reset();
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
