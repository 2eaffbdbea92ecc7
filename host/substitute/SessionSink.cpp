#include "SessionSink.h"

#include "quill/Debug.h"

namespace quill::stream {

SessionSink::~SessionSink() { SessionSink::Close(); }

bool SessionSink::Open() {
  if (Failed(Upstream() == nullptr, "!Upstream()", "a sink needs a source")) return false;
  _session = Upstream()->Output();
  if (Failed(_session == nullptr, "!_session", "the source is not open")) return false;
  // As with packets: what is told may destroy the stream, which waits for it first.
  _session->Listen([this, callbacks = OwnerCallbacks(*this)](const std::string& text) {
    callbacks->Begin();
    {
      const base::Held held = base::Keep(*this);
      Told(text);
    }
    callbacks->End();
  });
  return Element::Open();
}

bool SessionSink::Start() {
  _session->Play();
  const auto take = [this](Packet& packet) {
    const base::Held held = base::Keep(*this);  // what takes it may destroy the stream
    Take(packet);
  };
  const auto drained = [this] {
    const base::Held held = base::Keep(*this);
    Drained();
  };
  if (HasThread() && !_thread.Start(_session, take, drained, OwnerCallbacks(*this))) return false;
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
  const bool done = SessionSink::Stop();
  _session->Listen(nullptr);
  _session.reset();
  return Element::Close() && done;
}

}  // namespace quill::stream
