// Text messages between objects.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "quill/Visibility.h"

namespace quill::base {

class Message;

// The way a message goes from the object that sends it. It ends at the first receiver whose
// callback returns true.
class QUILL_PUBLIC Orient {
 public:
  enum EOrient : int {
    kSink = 1,      // to the object itself, then to those behind it in the data flow
    kSource = 2,    // to those in front of it in the data flow, the nearest first
    kChildren = 4,  // from a control object: to all objects under it, depth first
    kParent = 8,    // upward, to the object that owns it, then to that one's owner
    kOwners = 16,   // to all owners, the outermost first, even if one has taken it; skips an owner
                    // that is removed from its own owner during the walk
  };
  // NOLINTNEXTLINE(google-explicit-constructor): built from its enumeration, by design
  Orient(EOrient value) : _value(value) {}
  EOrient Value() const { return _value; }

 private:
  EOrient _value;
};

// The part of an object that sends messages and holds the callback for incoming ones.
class QUILL_PUBLIC IMessageProcesser {
 public:
  virtual ~IMessageProcesser() = default;

  // Sends `text` from this object and waits for the answer; on the message thread it is delivered
  // at once. `extra` is a note for the receiver, or null. False when no receiver took it, or
  // when the message thread is busy for longer than the time-out of a command; the message is then
  // delivered later. Any thread.
  bool SendMessage(const char* text, const Orient& orient, const char* extra);

  // Replaces the one callback that receives incoming messages; empty removes it. The callback runs
  // on the message thread. An exception that it throws is logged, and counts as the answer false.
  // Any thread; a running former callback is not interrupted.
  void RegisterMessageProcessCallback(const std::function<bool(Message&)>& callback);

 protected:
  bool RunCallback(Message& message) const;

 private:
  using Callback = std::function<bool(Message&)>;
  mutable std::mutex _callback_mutex;
  std::shared_ptr<const Callback> _callback;  // guarded by _callback_mutex; null: none
};

}  // namespace quill::base
