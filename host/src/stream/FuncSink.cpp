#include "FuncSink.h"

#include <atomic>
#include <mutex>

#include "quill/Debug.h"
#include "quill/Message.h"
#include "Threads.h"

namespace quill::stream {

// What the pull function uses: it may be called long after the sink is gone.
struct FuncSink::Port {
  std::mutex mutex;
  std::shared_ptr<Session> session;                  // guarded by mutex; null while closed
  std::shared_ptr<const std::atomic<bool>> enabled;  // guarded by mutex; of the stream's owner

  Packet* Pull(bool blocking) {
    std::shared_ptr<Session> current;
    {
      const std::lock_guard lock(mutex);
      if (session == nullptr || !enabled->load(std::memory_order_relaxed)) return nullptr;
      current = session;
    }
    return current->Pull(blocking);
  }
};

FuncSink::FuncSink(OpenFunction open, CloseFunction close, OutputFunction output,
                   MessageFunction message)
    : _open(std::move(open)),
      _close(std::move(close)),
      _output(std::move(output)),
      _message(std::move(message)),
      _port(std::make_shared<Port>()) {}

FuncSink::~FuncSink() { FuncSink::Close(); }

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
  if (!SessionSink::Open()) return false;
  _media = Upstream()->OutputMedia();
  const base::object* owner = this;
  while (owner->Parent() != nullptr) owner = owner->Parent();
  {
    const std::lock_guard lock(_port->mutex);
    _port->session = GetSession();
    _port->enabled = owner->EnableFlag();
  }
  IMedia* media = _media.get();
  const bool has_media = !Failed(media == nullptr, "!_media", "the source is not open");
  if (has_media && (!_open || _open(this, media))) return true;
  FuncSink::Close();
  return false;
}

void FuncSink::OnPacket(Packet& packet) {
  Packet* lent = &packet;
  if (_output) _output(lent);
}

void FuncSink::OnMessage(const std::string& text) {
  if (!_message) return;
  const std::unique_ptr<base::Message, base::Releaser> note(
      new base::Message(text.c_str(), nullptr));
  CallClient([&] { return _message(*note); });
}

bool FuncSink::Close() {
  const bool is_open = GetSession() != nullptr;
  const bool is_closed = SessionSink::Close();
  if (!is_open) return is_closed;
  {
    const std::lock_guard lock(_port->mutex);
    _port->session.reset();
  }
  const bool done = !_close || _close();
  _media.reset();
  return is_closed && done;
}

bool FuncSink::processMessage(base::Message& message) {
  if (_message && _message(message)) return true;
  return SessionSink::processMessage(message);
}

}  // namespace quill::stream
