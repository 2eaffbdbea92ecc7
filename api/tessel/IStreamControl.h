// What every stream object offers: configuration by text, a state, text messages.
#pragma once

#include <functional>

#include "tessel/object_base.h"
#include "tessel/State.h"

namespace tessel::api::streaming::common {

// Client's thread, unless said otherwise. Declaration order is vtable order.
//
// Any thread and any callback may change the state. Changes of one object run one at a time. A
// client's thread waits for its turn, at most for the command time-out (one second, unless the
// host's options say otherwise), and then starts from the state that it finds. A callback does not
// wait for a downward change, because that change may be waiting for the callback. The callback's
// own downward change is handed to the change under way and returns true; its upward change is
// refused and returns false. See doc/states.md.
class TESSEL_PUBLIC IStreamControl : public object_base {
 public:
  // Applies comma-separated pairs, `key=value`. False, with nothing applied, when the text is
  // malformed or a key is unknown.
  virtual bool Set(const char* str) = 0;

  // Moves up, down, or in the direction of `s`, step by step; stops at the first step that fails.
  // True when the state has reached `s`. Two cases differ: "ApiPhotography-dualos" goes on from
  // ready to null on its way down, and a stream whose real-time side has died reads null until
  // Close(). False, without any step, when `s` is not a state or lies in the opposite direction.
  // Any thread.
  virtual bool ChangeUp(State s) = 0;
  virtual bool ChangeDown(State s) = 0;
  virtual bool ChangeState(State s) = 0;

  // Also kNull once the real-time side has died; Close() then cleans up, and Open() works again
  // afterwards. Any thread.
  virtual State CurrentState() const = 0;

  // Replaces the callback; `cb` is copied. Call only while closed; otherwise the old callback may
  // still be running. `cb` runs on the message thread, and its text is borrowed until it returns.
  // It may change the state, except by Open() while another thread pulls frames. It must not
  // destroy the object. An exception that it throws is logged and counts as false.
  virtual void RegisterMessageCallback(const std::function<bool(const char*)>& cb) = 0;

  // Sends a message and waits for the answer. False when no callback accepts the message, or when
  // the message thread is busy for longer than the command time-out. Call only while no other
  // thread closes the object.
  virtual bool SendMessage(const char* msg) = 0;
};

}  // namespace tessel::api::streaming::common
