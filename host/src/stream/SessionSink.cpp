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
  // OnMessage() may destroy the stream: all that the call needs is held before the listener can be
  // removed.
  _session->SetListener([this](const std::string& text) -> std::function<void()> {
    _messages->Begin();
    return [this, text, running = _messages,
            guard = std::make_shared<base::CallbackGuard>(*this)]() mutable {
      OnMessage(text);
      running->End();
      guard.reset();
    };
  });
  return PipelineElement::Open();
}

bool SessionSink::Start() {
  _session->Play();
  if (HasThread() && !_thread.Start(_session, *this, *this)) return false;
  return PipelineElement::Start();
}

void SessionSink::Playing() { _thread.Begin(); }

bool SessionSink::Pause() {
  _session->Pause();
  return PipelineElement::Pause();
}

bool SessionSink::Resume() {
  _session->Resume();
  return PipelineElement::Resume();
}

bool SessionSink::Stop() {
  if (_session != nullptr) _session->Halt();
  const bool done = _thread.Stop();
  return PipelineElement::Stop() && done;
}

bool SessionSink::Close() {
  if (_session == nullptr) return PipelineElement::Close();
  bool done = SessionSink::Stop();
  _session->SetListener(nullptr);
  if (!IsHostThread()) done = _messages->WaitUntilNoneRuns(CommandTimeout()) && done;
  _session.reset();
  return PipelineElement::Close() && done;
}

}  // namespace quill::stream
