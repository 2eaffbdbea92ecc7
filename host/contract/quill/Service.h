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

// A host object with a status. Disabled ones do not go up. One that is still above null when its
// last holder lets go is closed while it is whole.
class QUILL_PUBLIC Service : public virtual base::Object, public virtual IStatus {
 public:
  bool beforeStatusUp(Status target) override;
  bool beforeStatusDown(Status target) override;

 protected:
  void LastReleased() override;
};

// "null", "ready", "play", "pause".
QUILL_PUBLIC const char* StatusName(IStatus::Status status);
QUILL_PUBLIC bool StatusFromName(const char* name, IStatus::Status& status);

}  // namespace quill::stream
