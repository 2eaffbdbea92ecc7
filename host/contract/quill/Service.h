// The stream status machine.
//
//            Open        Start        Pause
//     null ───────> ready ──────> play ──────> pause
//          <───────       <──────      <──────   │
//            Close         Stop        Resume    │
//                    ^───────────────────────────┘
//                           StopFromPause
#pragma once

#include <atomic>
#include <memory>

#include "quill/object.h"
#include "tessel/State.h"

namespace quill::stream {

// A transition that is called directly and succeeds counts as much as one that the machine asked
// for: each base version records it, and an override calls its base version when it has succeeded.
// Up-going ones raise the status to at least, down-going ones lower it to at most their target.
// Client's thread; CurrStatus() any thread.
class QUILL_PUBLIC IStatus {
 public:
  using Status = tessel::api::streaming::common::State;

  virtual ~IStatus() = default;

  virtual bool Open() { return Raise(Status::kReady); }
  virtual bool Start() { return Raise(Status::kPlay); }
  virtual bool Pause() { return Raise(Status::kPause); }
  virtual bool Resume() { return Lower(Status::kPlay); }
  virtual bool Stop() { return Lower(Status::kReady); }
  virtual bool Close() { return Lower(Status::kNull); }
  virtual bool StartToPause() { return Start() && Pause(); }
  virtual bool StopFromPause() { return Stop(); }

  // One step, or step by step to `target`. False at the first step that fails, or when `target`
  // lies the other way; true when it is reached already.
  virtual bool StatusUp();
  virtual bool StatusDown();
  virtual bool StatusUp(Status target);
  virtual bool StatusDown(Status target);
  bool StatusChange(Status target);

  virtual bool CanStatusUp() const { return CurrStatus() < Status::kPause; }
  virtual bool CanStatusDown() const { return CurrStatus() > Status::kNull; }
  Status CurrStatus() const { return _status.load(std::memory_order_acquire); }

  // Around each step; false from a before-hook refuses the step. The status is the step's target.
  virtual bool beforeStatusUp(Status) { return true; }
  virtual void afterStatusUp(Status) {}
  virtual bool beforeStatusDown(Status) { return true; }
  virtual void afterStatusDown(Status) {}

 private:
  bool Raise(Status at_least);
  bool Lower(Status at_most);
  std::atomic<Status> _status{Status::kNull};
};

// A host object with a status. The machine does not take disabled ones up. One that is still above
// null when its last holder lets go is closed while it is whole, and destroyed when the callbacks
// that it had running have returned.
class QUILL_PUBLIC Service : public virtual base::Object, public virtual IStatus {
 public:
  // One thread's turn to move a service. A thread of the client waits until nobody else moves it. A
  // host thread, which runs callbacks, does not wait for one that goes down, since that one may be
  // waiting for the very callback: it gets no turn. Turns of one thread may nest.
  class QUILL_PUBLIC Turn {
   public:
    Turn(Service& service, Status target);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    explicit operator bool() const { return _is_ours; }
    // Without a turn: whether somebody else is on the way down to the target, or below.
    bool IsDoneByOther() const { return _is_done_by_other; }

   private:
    Service& _service;
    bool _is_ours = false;
    bool _is_done_by_other = false;
  };

  using IStatus::StatusDown;
  using IStatus::StatusUp;
  bool StatusUp() override;    // each step is a turn
  bool StatusDown() override;  //

  // Pausing reaches all services under this one: frames are held back, none is lost that has room.
  bool Pause() override;
  bool Resume() override;
  // When these have returned on a thread of the client, no callback of this object runs any more.
  bool Stop() override;
  bool Close() override;
  bool beforeStatusUp(Status target) override;

  // Callbacks that run on threads of their own, counted by whoever runs them.
  class Callbacks;
  const std::shared_ptr<Callbacks>& GetCallbacks() const { return _callbacks; }

 protected:
  Service();
  ~Service() override;
  void LastReleased() override;

 private:
  struct Traffic;
  const std::unique_ptr<Traffic> _traffic;
  const std::shared_ptr<Callbacks> _callbacks;
};

// "null", "ready", "play", "pause".
QUILL_PUBLIC const char* StatusName(IStatus::Status status);
QUILL_PUBLIC bool StatusFromName(const char* name, IStatus::Status& status);

}  // namespace quill::stream
