// Host objects with a status, and the rules by which threads change it.
//
//  1. Any thread may ask for any change of any stream, at any time, by the machine (StatusUp(),
//     StatusDown(), StatusChange()) or by a transition (Open(), Start(), Stop(), Close()).
//  2. One change of an object runs at a time. Changes that it calls on its own thread belong to it.
//  3. A client's thread waits for the running change, at most for the time-out of a command. It
//     then reads the status again: a target is a target, not a number of steps.
//  4. A host thread runs callbacks, and a downward change may be waiting for just that callback. So
//     a host thread does not wait for a downward change. Its own downward change is left to the
//     running one, which goes on to the lowest target left to it; the call returns true. Its upward
//     change is refused and logged. A client's thread whose wait times out is treated likewise.
//  5. A downward change by a thread of the client returns true when no callback of the object runs
//     any more, unless rule 4 has left it to another thread. It waits for them at most for the
//     time-out of a command at each of its steps. A downward change by a host thread does not
//     wait for callbacks.
//  6. Upward changes of a disabled object, and of one whose connection is lost, are refused.
//
// Every call thus ends in a status that some serial order of the calls explains; a call that was
// refused takes no place in that order.
#pragma once

#include <memory>

#include "quill/IStatus.h"
#include "quill/Properties.h"

namespace quill::stream {

// When the last hold is given back, a service above null is closed first, and destroyed when its
// callbacks have returned.
//
// An override of Open(), Start(), Stop() or Close() that has state of its own to guard begins with
// Service::beforeStatusUp() or Service::beforeStatusDown() and, where that returned true, ends with
// the after-hook of the same direction. In between the change is the only one.
class QUILL_PUBLIC Service : public virtual base::Object, public virtual IStatus {
 public:
  bool StatusUp() override;
  bool StatusDown() override;
  bool StatusUp(Status target) override;
  bool StatusDown(Status target) override;
  bool StatusChange(Status target) override;

  // Pausing reaches all services under this one: frames wait in the ring, and are
  // dropped when it is full. Only from play on. These two are called by the machine, which lets one
  // change run at a time.
  bool Pause() override;
  bool Resume() override;
  // False when a callback of this object still runs at the time-out. The status is lowered even so;
  // where an override of Close() stops first, it may then have reached ready only.
  bool Stop() override;
  bool Close() override;

  // Begin a change, which the after-hooks end. False when the change is refused, or, downward, left
  // to the one under way.
  bool beforeStatusUp(Status target) override;
  bool beforeStatusDown(Status target) override;

  std::shared_ptr<base::Callbacks> GetCallbacks() const override { return _callbacks; }

 protected:
  Service();
  ~Service() override;

 private:
  class Transitions;
  class TransitionLock;
  bool WaitForCallbacks(Status target);
  const std::shared_ptr<base::Callbacks> _callbacks;
  const std::unique_ptr<Transitions> _transitions;
};

// "null", "ready", "play", "pause".
QUILL_PUBLIC const char* StatusName(IStatus::Status status);
QUILL_PUBLIC bool StatusFromName(const char* name, IStatus::Status& status);

}  // namespace quill::stream
