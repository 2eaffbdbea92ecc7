// The base of pipeline ends, which take the packets of the session in front of them.
#pragma once

#include <memory>
#include <string>

#include "Callbacks.h"
#include "PipelineElement.h"
#include "StreamThread.h"

namespace quill::stream {

// REQUIRES: the most derived destructor calls Close(), as the stream thread and the message thread
// may call virtual functions until then.
class SessionSink : public PipelineElement, private StreamThread::Receiver {
 public:
  bool Open() override;  // attaches to the session of the element in front
  bool Start() override;
  bool Pause() override;
  bool Resume() override;
  bool Stop() override;
  bool Close() override;
  void Playing() override;  // lets the packets come

 protected:
  ~SessionSink() override;

  // Whether OnPacket() is called, by a stream thread of this sink.
  virtual bool HasThread() const { return true; }
  // See StreamThread::Receiver.
  void OnPacket(Packet&) override {}
  // A text about the stream from the real-time side, or of its loss. Message thread.
  virtual void OnMessage(const std::string&) {}

  const std::shared_ptr<Session>& GetSession() const { return _session; }  // null while closed

 private:
  std::shared_ptr<Session> _session;
  StreamThread _thread;
  // Calls of OnMessage() that are running.
  const std::shared_ptr<base::Callbacks> _messages = std::make_shared<base::Callbacks>();
};

}  // namespace quill::stream
