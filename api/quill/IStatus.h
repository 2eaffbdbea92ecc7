// The host's stream status and the machine that moves it. It stands beside the clients' interfaces,
// as clients see the status itself.
//
//            Open        Start        Pause
//     null ───────> ready ──────> play ──────> pause
//          <───────       <──────      <──────   │
//            Close         Stop        Resume    │
//                    ^───────────────────────────┘
//                           StopFromPause
#pragma once

#include <atomic>
#include <cstdint>

namespace quill::stream {

// Calling Open() directly is equivalent to StatusUp() from null, and so on: each base version
// records the new status, and an override calls its base version when it has succeeded.
// Base versions of upward transitions raise the status to at least, downward ones lower it to at
// most their target. Who may call what from which thread: see quill/Service.h.
class __attribute__((visibility("default"))) IStatus {
 public:
  // In rising order: a status above kPlay holds everything that playing holds.
  enum class Status : int {
    kNull = 0,   // nothing exists on the real-time side
    kReady = 1,  // both halves exist, the media description is known, no frames move
    kPlay = 2,   // frames move
    kPause = 3,  // as kPlay, the delivery held
  };

  virtual ~IStatus() = default;

  virtual bool Open();
  virtual bool Start();
  virtual bool Pause();
  virtual bool Resume();
  virtual bool Stop();
  virtual bool Close();
  virtual bool StartToPause();
  virtual bool StopFromPause();

  // One step, or step by step to `target`. False at the first step that fails, when `target` lies
  // the other way or is no status; true when it is reached already.
  virtual bool StatusUp();
  virtual bool StatusDown();
  virtual bool StatusUp(Status target);
  virtual bool StatusDown(Status target);
  // Whichever way leads to `target`.
  virtual bool StatusChange(Status target);

  virtual bool CanStatusUp() const;
  virtual bool CanStatusDown() const;
  // kNull as well when the connection to the real-time side was lost; Close() then clears up. Any
  // thread.
  Status CurrStatus() const;

  // Around each step, whose target is given. A before-hook that returns false refuses the step; one
  // that returned true is followed by the after-hook, whether or not the step succeeded.
  virtual bool beforeStatusUp(Status target);
  virtual void afterStatusUp(Status target);
  virtual bool beforeStatusDown(Status target);
  virtual void afterStatusDown(Status target);

  // Host only. From now on the status is lost with this connection, until it is null again.
  void DependOn(std::uint64_t connection);
  bool IsLost() const;  // any thread
  // What the transitions have led to, also after a loss. Any thread.
  Status LastStatus() const { return _status.load(std::memory_order_acquire); }

 protected:
  // What the after-hooks end.
  class Changes {
   public:
    virtual void End() = 0;

   protected:
    ~Changes() = default;
  };
  void SetChanges(Changes& changes) { _changes = &changes; }  // borrows for the object's life

 private:
  bool Raise(Status at_least);
  bool Lower(Status at_most);

  std::atomic<Status> _status{Status::kNull};
  std::atomic<std::uint64_t> _connection{0};  // its number; 0: none
  Changes* _changes = nullptr;
};

}  // namespace quill::stream
