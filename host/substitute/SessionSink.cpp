#include "SessionSink.h"

#include "quill/Debug.h"

namespace quill::stream {

SessionSink::~SessionSink() { SessionSink::Close(); }

bool SessionSink::Open() {
  if (Failed(Upstream() == nullptr, "!Upstream()", "a sink needs a source")) return false;
  _session = Upstream()->Output();
  if (Failed(_session == nullptr, "!_session", "the source is not open")) return false;
  // As with packets: what is told may destroy the stream, which waits for it first.
  _session->Listen([this, callbacks = OwnerCallbacks()](const std::string& text) {
    callbacks->Begin();
    Hold();
    Told(text);
    Release();
    callbacks->End();
  });
  return Element::Open();
}

std::shared_ptr<Service::Callbacks> SessionSink::OwnerCallbacks() const {
  const base::object* owner = this;
  while (owner->Parent() != nullptr) owner = owner->Parent();
  const auto* service = dynamic_cast<const Service*>(owner);
  return service == nullptr ? GetCallbacks() : service->GetCallbacks();
}

bool SessionSink::Start() {
  _thread.Join();  // before it could find something to take
  _session->Play();
  const auto take = [this](Packet& packet) {
    Hold();  // what takes it may destroy the stream
    Take(packet);
    Release();
  };
  const auto drained = [this] {
    Hold();
    Drained();
    Release();
  };
  if (HasThread() && !_thread.Start(_session, take, drained, OwnerCallbacks())) return false;
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
  _thread.Join();
  return Element::Stop();
}

bool SessionSink::Close() {
  if (_session == nullptr) return Element::Close();
  SessionSink::Stop();
  _session->Listen(nullptr);
  _session.reset();
  return Element::Close();
}

}  // namespace quill::stream
