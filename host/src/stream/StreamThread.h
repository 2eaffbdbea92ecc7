// The thread that takes a stream's packets out of its session, one after the other.
#pragma once

#include <memory>

#include "Callbacks.h"
#include "quill/Service.h"
#include "Session.h"
#include "Threads.h"

namespace quill::stream {

// Client's thread, one change of the stream at a time, except where said otherwise.
class StreamThread {
 public:
  // What takes the packets. May stop, close or destroy its stream. Stream thread.
  class Receiver {
   public:
    virtual void OnPacket(Packet& packet) = 0;  // lent until return
    virtual void OnDrained() {}  // the session has ended, and its last packet was taken

   protected:
    ~Receiver() = default;
  };

  StreamThread() = default;
  StreamThread(const StreamThread&) = delete;
  StreamThread& operator=(const StreamThread&) = delete;

  // Hands each packet to `receiver`, which is part of `sink`, from Begin() on. `sink` and its
  // owners live until the thread has ended. False when the system has no thread left. A former
  // thread whose callback has not returned yet takes no further packet; the new one begins after
  // it.
  bool Start(std::shared_ptr<Session> session, Receiver& receiver, Service& sink);
  // Lets the packets come. Call once the whole pipeline plays: a callback may then stop it.
  void Begin();
  // Ends the thread and waits for it, at most for the time-out of a command: then false. A host
  // thread does not wait. REQUIRES: the session is halted.
  bool Stop();

 private:
  struct Run;
  std::shared_ptr<Run> _run;  // of one Start(); null when there is none
};

}  // namespace quill::stream
