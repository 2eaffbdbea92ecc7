// What every stream object offers: configuration by text, state, text messages.
#pragma once

#include <functional>

#include "tessel/object_base.h"
#include "tessel/State.h"

namespace tessel::api::streaming::common {

// Client's thread, unless said otherwise. The order of declaration is the order of the slots.
//
// The changes of the state may come from any thread and from any callback. They run one at a time.
// A client's thread waits for its turn, at most for the time-out of a command (one second, unless
// the host's options say otherwise), and then looks at the state anew. A callback
// does not wait for a downward change, which may be waiting for the callback: its own downward
// change is left to the one under way and answers true, and its upward change is refused and
// answers false. See doc/states.md.
class TESSEL_PUBLIC IStreamControl : public object_base {
 public:
  // Applies comma-separated pairs, `key=value`. False when the text is malformed or a key is
  // unknown; then nothing is applied.
  virtual bool Set(const char* str) = 0;

  // Moves up, down, or whichever way is needed, step by step; stops at the first step that fails.
  // True when the state has reached `s`; "ApiPhotography-dualos" goes on from ready to null, and a
  // stream whose real-time side has died reads null until Close(). False, with nothing moved, when
  // `s` lies the other way or is no state. Any thread.
  virtual bool ChangeUp(State s) = 0;
  virtual bool ChangeDown(State s) = 0;
  virtual bool ChangeState(State s) = 0;

  // kNull as well once the real-time side has died; Close() then clears up, and Open() works again
  // after it. Any thread.
  virtual State CurrentState() const = 0;

  // Replaces the callback; `cb` is copied. Call only while closed; otherwise the old callback may
  // still be running. `cb` runs on the message thread, and its text is borrowed until it returns.
  // It may change the state, but not Open() while another thread pulls frames; it must not destroy
  // the object. An exception that it throws is logged and counts as false.
  virtual void RegisterMessageCallback(const std::function<bool(const char*)>& cb) = 0;

  // Waits for the answer. False when no callback took the message, or when the message thread is
  // busy for longer than the time-out of a command. Call only where no other thread closes the
  // object meanwhile.
  virtual bool SendMessage(const char* msg) = 0;
};

}  // namespace tessel::api::streaming::common
