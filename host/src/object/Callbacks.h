// Counts running callbacks, so that a stream that goes down can wait for them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "quill/object.h"

#include "ForkedChild.h"

namespace quill::base {

// Callbacks of one stream object that are running or about to. Any thread.
class Callbacks {
 public:
  void Begin() {
    const std::lock_guard lock(_mutex);
    ++_running;
  }
  void End() {
    const std::lock_guard lock(_mutex);
    --_running;
    _ended.notify_all();
  }
  void WaitUntilNoneRuns() {
    if (stream::IsForkedChild()) return;  // the threads are the parent's
    std::unique_lock lock(_mutex);
    _ended.wait(lock, [this] { return _running == 0; });
  }
  // False at the time-out.
  bool WaitUntilNoneRuns(std::chrono::nanoseconds timeout) {
    if (stream::IsForkedChild()) return true;
    std::unique_lock lock(_mutex);
    return _ended.wait_for(lock, timeout, [this] { return _running == 0; });
  }
  // Held around each call of the output callback. A stream that its own callback has stopped and
  // started has a second thread, which delivers once the callback has returned.
  std::mutex output_turn;

 private:
  std::mutex _mutex;
  std::condition_variable _ended;
  int _running = 0;  // guarded by _mutex
};

// Holds an object and its owners, and counts as a running callback of the outermost one among them
// that counts callbacks. That one belongs to the client: it is not held, as it waits for its
// callbacks before it is destroyed.
class CallbackGuard {
 public:
  explicit CallbackGuard(object& part);
  ~CallbackGuard();
  CallbackGuard(const CallbackGuard&) = delete;
  CallbackGuard& operator=(const CallbackGuard&) = delete;

 private:
  std::vector<Held> _held;
  std::shared_ptr<Callbacks> _callbacks;  // null when none of them counts
};

// The count of the outermost one among `part` and its owners that counts; null when none does.
std::shared_ptr<Callbacks> OwnerCallbacks(const object& part);

}  // namespace quill::base
