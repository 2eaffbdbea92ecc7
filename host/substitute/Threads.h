// Threads of the host library, and the one that delivers messages.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "quill/Service.h"
#include "Window.h"

namespace quill::stream {

// A thread with a name (at most 15 characters) that no signal of the client's is delivered to.
// Joinable; throws nothing: a default-constructed thread when the system has none left.
std::thread StartThread(const char* name, std::function<void()> run);

// Whether this thread was started here, so that what runs on it may be a client's callback.
bool IsHostThread();

// Runs a client's callback and returns its answer. An exception ends here: it is logged, and the
// answer is false.
bool CallClient(const std::function<bool()>& callback);

// Runs `work` on the message thread, after all that was posted before. That thread starts at the
// first post and lives as long as the process. Messages have a thread of their own because their
// callbacks may run commands, whose answers another thread has to receive meanwhile. Any thread.
void PostMessage(std::function<void()> work);

// Runs `deliver` on the message thread, at once when this is it, and returns its answer. `sender`
// and its owners live until then. False at the time-out of a command; `deliver` still runs later.
bool DeliverMessage(base::object& sender, std::function<bool()> deliver);

// Callbacks of one stream object that are running or about to. Any thread.
class Service::Callbacks {
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
    if (IsForkedChild()) return;  // none of them came along
    std::unique_lock lock(_mutex);
    _ended.wait(lock, [this] { return _running == 0; });
  }
  // False at the time-out.
  bool WaitUntilNoneRuns(std::chrono::nanoseconds timeout) {
    if (IsForkedChild()) return true;
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

// Keeps an object and its owners alive, and counts as a running callback of the outermost service
// among them. That one is the client's: it is not held, as it waits for its callbacks.
class CallbackGuard {
 public:
  explicit CallbackGuard(base::object& part);
  ~CallbackGuard();
  CallbackGuard(const CallbackGuard&) = delete;
  CallbackGuard& operator=(const CallbackGuard&) = delete;

 private:
  std::vector<base::Held> _held;
  std::shared_ptr<Service::Callbacks> _callbacks;  // null when no service is among them
};

// The callbacks of the outermost service among `part` and its owners; null when there is none.
std::shared_ptr<Service::Callbacks> OwnerCallbacks(const base::object& part);

}  // namespace quill::stream
