// Threads of the host library, and the one that runs clients' message callbacks.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "quill/Service.h"
#include "Window.h"

namespace quill::stream {

// A thread with a name (at most 15 characters) that no signal of the client's is delivered to.
// Joinable; throws nothing: a default-constructed thread when the system has none left.
std::thread StartThread(const char* name, std::function<void()> run);

// Whether this thread was started here, so that what runs on it may be a client's callback.
bool IsHostThread();

// Runs `work` on the message thread, after all that was posted before. That thread starts at the
// first post and lives as long as the process. Callbacks have a thread of their own because they
// may run commands, whose answers another thread has to receive meanwhile. Any thread.
void PostMessage(std::function<void()> work);

// Threads that run callbacks of one stream object, from their start to their end. Any thread.
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

 private:
  std::mutex _mutex;
  std::condition_variable _ended;
  int _running = 0;  // guarded by _mutex
};

}  // namespace quill::stream
