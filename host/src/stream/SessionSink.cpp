#include "SessionSink.h"

#include "Callbacks.h"
#include "quill/Debug.h"
#include "Timeouts.h"

namespace quill::stream {

SessionSink::~SessionSink() { SessionSink::Close(); }

bool SessionSink::Open() {
  if (Failed(Upstream() == nullptr, "!Upstream()", "a sink needs a source")) return false;
  _session = Upstream()->Output();
  if (Failed(_session == nullptr, "!_session", "the source is not open")) return false;
  // What is told may destroy the stream, so all that it needs is kept before the listener can be
  // removed.
  _session->Listen([this](const std::string& text) -> std::function<void()> {
    _told->Begin();
    return
        [this, text, told = _told, guard = std::make_shared<base::CallbackGuard>(*this)]() mutable {
          Told(text);
          told->End();
          guard.reset();
        };
  });
  return Element::Open();
}

bool SessionSink::Start() {
  _session->Play();
  const auto take = [this](Packet& packet) { Take(packet); };
  const auto drained = [this] { Drained(); };
  if (HasThread() && !_thread.Start(_session, take, drained, *this)) return false;
  return Element::Start();
}

void SessionSink::Playing() { _thread.Release(); }

bool SessionSink::Pause() {
  _session->Pause();
  return Element::Pause();
}

bool SessionSink::Resume() {
  _session->Resume();
  return Element::Resume();
}

bool SessionSink::Stop() {
  if (_session != nullptr) _session->Halt();
  const bool done = _thread.Stop();
  return Element::Stop() && done;
}

bool SessionSink::Close() {
  if (_session == nullptr) return Element::Close();
  bool done = SessionSink::Stop();
  _session->Listen(nullptr);
  if (!IsHostThread()) done = _told->WaitUntilNoneRuns(CommandTimeout()) && done;
  _session.reset();
  return Element::Close() && done;
}

}  // namespace quill::stream
