// The count of running callbacks, by which a stream that goes down waits for them.
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
    if (stream::IsForkedChild()) return;  // none of them came along
    std::unique_lock lock(_mutex);
    _ended.wait(lock, [this] { return _running == 0; });
  }
  // False at the time-out.
  bool WaitUntilNoneRuns(std::chrono::nanoseconds timeout) {
    if (stream::IsForkedChild()) return true;
    std::unique_lock lock(_mutex);
    return _ended.wait_for(lock, timeout, [this] { return _running == 0; });
  }
  // Held around each call of the output callback. A stream that its own callback has started anew
  // has a second thread, which delivers when the callback has returned.
  std::mutex output_turn;

 private:
  std::mutex _mutex;
  std::condition_variable _ended;
  int _running = 0;  // guarded by _mutex
};

// Keeps an object and its owners alive, and counts as a running callback of the outermost one
// among them that counts callbacks. That one is the client's: it is not held, as it waits for its
// callbacks.
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
