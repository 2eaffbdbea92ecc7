#include "Threads.h"

#include <deque>
#include <system_error>

#include <pthread.h>
#include <signal.h>

#include "quill/Debug.h"

namespace quill::stream {
namespace {

thread_local bool t_is_host_thread = false;

class MessageThread {
 public:
  void Post(std::function<void()> work) {
    const std::lock_guard lock(_mutex);
    _queue.push_back(std::move(work));
    _has_work.notify_one();
    if (_is_running) return;
    std::thread thread = StartThread("tessel-message", [this] { Run(); });
    _is_running = thread.joinable();
    if (_is_running) thread.detach();
  }

 private:
  [[noreturn]] void Run() {
    for (;;) {
      std::unique_lock lock(_mutex);
      _has_work.wait(lock, [this] { return !_queue.empty(); });
      const std::function<void()> work = std::move(_queue.front());
      _queue.pop_front();
      lock.unlock();
      work();
    }
  }

  std::mutex _mutex;
  std::condition_variable _has_work;
  std::deque<std::function<void()>> _queue;  // guarded by _mutex
  bool _is_running = false;                  // guarded by _mutex
};

}  // namespace

std::thread StartThread(const char* name, std::function<void()> run) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // the new thread inherits it
  std::thread thread;
  try {
    thread = std::thread([name, run = std::move(run)] {
      pthread_setname_np(pthread_self(), name);
      t_is_host_thread = true;
      run();
    });
  } catch (const std::system_error& error) {
    Fail("!thread", name, ": ", error.what());
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

bool IsHostThread() { return t_is_host_thread; }

void PostMessage(std::function<void()> work) {
  static auto* thread = new MessageThread;  // never destroyed: nobody waits for it at exit
  thread->Post(std::move(work));
}

}  // namespace quill::stream
