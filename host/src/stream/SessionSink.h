// What ends of a pipeline have in common: they take the packets of the session in front of them.
#pragma once

#include <memory>
#include <string>

#include "Callbacks.h"
#include "Element.h"
#include "StreamThread.h"

namespace quill::stream {

// The thread whose change runs, unless said otherwise. REQUIRES: the most derived destructor calls
// Close(): until then the other threads may call what is virtual here.
class SessionSink : public Element {
 public:
  bool Open() override;  // attaches to the session of the element in front
  bool Start() override;
  bool Pause() override;
  bool Resume() override;
  bool Stop() override;
  bool Close() override;
  void Playing() override;  // only now packets come: what takes them may stop the stream

 protected:
  ~SessionSink() override;

  // Whether Take() is called, by a thread of the sink's.
  virtual bool HasThread() const { return true; }
  // One packet, lent until return. It may stop, close or destroy the stream. Stream thread.
  virtual void Take(Packet&) {}
  // The session has ended, and its last packet was taken. Stream thread.
  virtual void Drained() {}
  // The real-time side says something of the stream, or is gone. Message thread.
  virtual void Told(const std::string&) {}

  const std::shared_ptr<Session>& GetSession() const { return _session; }  // null while closed

 private:
  std::shared_ptr<Session> _session;
  StreamThread _thread;
  // Texts that are being told.
  const std::shared_ptr<base::Callbacks> _told = std::make_shared<base::Callbacks>();
};

}  // namespace quill::stream
