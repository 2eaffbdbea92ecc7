#include "MessageThread.h"

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>

#include "quill/Debug.h"

#include "Callbacks.h"
#include "ForkedChild.h"
#include "Threads.h"
#include "Timeouts.h"

namespace quill::stream {
namespace {

thread_local bool t_is_message_thread = false;

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
    t_is_message_thread = true;
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

void PostMessage(std::function<void()> work) {
  static auto* thread = new MessageThread;  // never destroyed: nobody waits for it at exit
  thread->Post(std::move(work));
}

bool DeliverMessage(base::object& sender, std::function<bool()> deliver) {
  auto guard = std::make_shared<base::CallbackGuard>(sender);
  if (t_is_message_thread || IsForkedChild()) return CallClient(deliver);
  auto answer = std::make_shared<std::promise<bool>>();
  std::future<bool> answered = answer->get_future();
  PostMessage(
      [answer, guard, deliver = std::move(deliver)] { answer->set_value(CallClient(deliver)); });
  guard.reset();
  const bool is_in_time = answered.wait_for(CommandTimeout()) == std::future_status::ready;
  return !Failed(!is_in_time, "!is_in_time", "the message waits for another callback") &&
         answered.get();
}

}  // namespace quill::stream
