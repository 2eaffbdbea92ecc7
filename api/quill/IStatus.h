// The host's stream status and the state machine that changes it. This header belongs to the
// clients' interfaces because clients see the status itself.
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

// Calling Open() directly is equivalent to StatusUp() from null, and so on. The base version of
// each transition records the new status; an override calls it once it has succeeded. The base
// version of an upward transition never lowers the status, that of a downward one never raises it.
// quill/Service.h says which thread may call what.
class __attribute__((visibility("default"))) IStatus {
 public:
  // In rising order: each status keeps everything that the one below it has.
  enum class Status : int {
    kNull = 0,   // nothing exists on the real-time side
    kReady = 1,  // both halves exist, the media description is known, no frames move
    kPlay = 2,   // frames move
    kPause = 3,  // as kPlay, but delivery is suspended
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

  // Take one step, or all steps to `target`. False at the first step that fails, and when `target`
  // is not a status or lies in the opposite direction. True when `target` is reached already.
  virtual bool StatusUp();
  virtual bool StatusDown();
  virtual bool StatusUp(Status target);
  virtual bool StatusDown(Status target);
  // Moves up or down, as `target` requires.
  virtual bool StatusChange(Status target);

  virtual bool CanStatusUp() const;
  virtual bool CanStatusDown() const;
  // Also kNull once the connection to the real-time side is lost; Close() then cleans up. Any
  // thread.
  Status CurrStatus() const;

  // Called before and after each step, with the target of the step. A before-hook refuses the step
  // by returning false. If it returns true, the after-hook follows whether or not the step
  // succeeds.
  virtual bool beforeStatusUp(Status target);
  virtual void afterStatusUp(Status target);
  virtual bool beforeStatusDown(Status target);
  virtual void afterStatusDown(Status target);

  // Host only. Ties the status to this connection, until the status is null again: when the
  // connection is lost, so is the status.
  void DependOn(std::uint64_t connection);
  bool IsLost() const;  // any thread
  // The status that the transitions have reached, even after a loss. Any thread.
  Status LastStatus() const { return _status.load(std::memory_order_acquire); }

 protected:
  // The change under way, which the after-hooks end.
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
