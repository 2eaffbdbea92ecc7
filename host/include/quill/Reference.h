// The reference count of host objects and packets, and the words used everywhere for threads,
// ownership and failure.
//
// Threads
//   any thread       at any time, also at the same time
//   client's thread  whichever thread the client uses, one at a time an object
//   stream thread    the host's, one for each pushed stream
//   message thread   the host's, one for all messages
//   host thread      any of the host's
//   far side         the other process, which plays the real-time operating system
//
// Ownership
//   owns                   destroys it
//   borrows until return   the default of a raw pointer without a word
//   holds                  counted: give back with Release() or the last shared_ptr
//
// Failure
//   An operation that fails answers false or null; none throws. Null where a text, a function, an
//   object or a place for a result is needed is such a failure: nothing is changed, and a setter
//   without an answer keeps what it had. Where null has a meaning, as "no name" has for a
//   constructor, the operation says so.
#pragma once

#include <atomic>

#include "quill/Visibility.h"

namespace quill::base {

class QUILL_PUBLIC Reference {
 public:
  Reference() = default;
  Reference(const Reference&) = delete;
  Reference& operator=(const Reference&) = delete;

  // Any thread that holds it already.
  QUILL_PUBLIC void Hold() const { _holders.fetch_add(1, std::memory_order_relaxed); }
  // Any thread. Gives one hold back; the last one ends the object.
  QUILL_PUBLIC void Release() const {
    // Pairs with itself: what every holder did to the object happens before its end.
    if (_holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      const_cast<Reference*>(this)->LastReleased();
    }
  }

 protected:
  virtual ~Reference() = default;
  // Runs on the thread that gave the last hold back.
  virtual void LastReleased() { delete this; }
  // The one hold of whoever made it, or made it anew.
  void StartHold() { _holders.store(1, std::memory_order_relaxed); }

 private:
  mutable std::atomic<int> _holders{1};
};

}  // namespace quill::base
