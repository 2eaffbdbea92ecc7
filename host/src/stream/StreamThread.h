// The thread that takes a stream's packets out of its session, one after the other.
#pragma once

#include <functional>
#include <memory>

#include "Callbacks.h"
#include "quill/Service.h"
#include "Session.h"
#include "Threads.h"

namespace quill::stream {

// The thread whose change runs, and the thread itself. What it runs may stop, close or destroy its
// stream.
class StreamThread {
 public:
  StreamThread() = default;
  StreamThread(const StreamThread&) = delete;
  StreamThread& operator=(const StreamThread&) = delete;

  // Calls `output` with each packet, lent until return, from Release() on, and `drained` when the
  // session has ended and the last one was taken. `sink` and its owners live until
  // the thread has ended. False when the system has no thread left. A former thread whose callback
  // has not returned yet takes no packet any more; the new one begins after it.
  bool Start(std::shared_ptr<Session> session, std::function<void(Packet&)> output,
             std::function<void()> drained, Service& sink);
  // The whole pipeline plays: a callback that stops it does not cross its start any more.
  void Release();
  // Lets the thread take no packet any more, and waits until it has ended, at most for the time-out
  // of a command: then false. A host thread does not wait. REQUIRES: the session is halted.
  bool Stop();

 private:
  struct Run;
  std::shared_ptr<Run> _run;  // of one Start(); null when there is none
};

}  // namespace quill::stream
