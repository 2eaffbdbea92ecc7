// The reference count of host objects and packets, and the words used everywhere for threads,
// ownership and failure.
//
// Threads
//   any thread       at any time, also at the same time
//   client's thread  any thread that the host has not started, one at a time for an object
//   stream thread    started by the host, one for each pushed stream
//   message thread   started by the host, one for all messages
//   wire thread      started by the host, one for each connection to the real-time side
//   host thread      any of these three
// doc/threads.md says what may run on each.
//
// Ownership
//   owns                   destroys it
//   borrows until return   what a raw pointer does where nothing else is said
//   holds                  counted: give back with Release() or the last shared_ptr
//
// Failure
//   An operation that fails returns false or null; none throws. A null argument where a text, a
//   function, an object or a place for the result is required is such a failure: nothing changes,
//   and a setter without a result keeps the old value. Where null has a meaning, the operation says
//   so.
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
    // Pairs with itself: all that the holders did to the object happens before its end.
    if (_holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      const_cast<Reference*>(this)->LastReleased();
    }
  }

 protected:
  virtual ~Reference() = default;
  // Runs on the thread that gave the last hold back.
  virtual void LastReleased() { delete this; }
  // Starts with one hold, that of the caller; also for an object that is used again.
  void StartHold() { _holders.store(1, std::memory_order_relaxed); }

 private:
  mutable std::atomic<int> _holders{1};
};

}  // namespace quill::base
