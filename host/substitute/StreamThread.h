// The thread that takes a stream's packets out of its session, one after the other.
#pragma once

#include <functional>
#include <memory>

#include "Session.h"
#include "Threads.h"

namespace quill::stream {

// Client's thread, and the thread itself. What it runs may stop, close or destroy its stream.
class StreamThread {
 public:
  StreamThread() = default;
  // Its own callback may have destroyed it: the thread then ends by itself, and the stream object
  // waits for that.
  ~StreamThread();
  StreamThread(const StreamThread&) = delete;
  StreamThread& operator=(const StreamThread&) = delete;

  // Calls `output` with each packet, lent until return, from Release() on, and `drained` when the
  // session has ended and the last one was taken. `callbacks` counts the thread. False when the
  // system has no thread left. REQUIRES: Join() was called.
  bool Start(std::shared_ptr<Session> session, std::function<void(Packet&)> output,
             std::function<void()> drained, std::shared_ptr<Service::Callbacks> callbacks);
  // The whole pipeline plays: a callback that stops it does not cross its start any more.
  void Release();
  // Waits for the thread, unless this is it: then whoever comes next does. REQUIRES: the session is
  // halted, or has ended.
  void Join();

 private:
  struct Run;
  std::shared_ptr<Run> _run;  // of one Start(); null when there is none
};

}  // namespace quill::stream
