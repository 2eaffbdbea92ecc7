// What every stream object offers: configuration by text, state, text messages.
#pragma once

#include <functional>

#include "tessel/object_base.h"
#include "tessel/State.h"

namespace tessel::api::streaming::common {

// Client's thread, unless said otherwise. The order of declaration is the order of the slots.
class TESSEL_PUBLIC IStreamControl : public object_base {
 public:
  // Applies comma-separated pairs, `key=value`. False when the text is malformed or a key is
  // unknown; then nothing is applied.
  virtual bool Set(const char* str) = 0;

  // Moves up, down, or whichever way is needed, step by step; stops at the first step that fails.
  virtual bool ChangeUp(State s) = 0;
  virtual bool ChangeDown(State s) = 0;
  virtual bool ChangeState(State s) = 0;

  // Any thread.
  virtual State CurrentState() const = 0;

  // Replaces the callback; `cb` is copied. To be set while the object is closed, as it may be
  // running else. `cb` runs on a host thread and its text is borrowed until it returns. It may call
  // Stop() and Close(), and Open() where no other thread pulls frames; it must not destroy the
  // source.
  virtual void RegisterMessageCallback(const std::function<bool(const char*)>& cb) = 0;

  // False when nobody took the message. Not while a callback may close the object.
  virtual bool SendMessage(const char* msg) = 0;
};

}  // namespace tessel::api::streaming::common
