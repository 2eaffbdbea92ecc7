#include "Threads.h"

#include <deque>
#include <future>
#include <system_error>
#include <vector>

#include <pthread.h>
#include <signal.h>

#include "FarSide.h"
#include "quill/Debug.h"

namespace quill::stream {
namespace {

thread_local bool t_is_host_thread = false;
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

bool CallClient(const std::function<bool()>& callback) {
  try {
    return callback();
  } catch (const std::exception& error) {
    Fail("!callback", "a callback has thrown: ", error.what());
  } catch (...) {
    Fail("!callback", "a callback has thrown");
  }
  return false;
}

void PostMessage(std::function<void()> work) {
  static auto* thread = new MessageThread;  // never destroyed: nobody waits for it at exit
  thread->Post(std::move(work));
}

bool DeliverMessage(base::object& sender, std::function<bool()> deliver) {
  auto guard = std::make_shared<CallbackGuard>(sender);
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

namespace {

const Service* OutermostService(const base::object& part) {
  const Service* outermost = nullptr;
  for (const base::object* each = &part; each != nullptr; each = each->Parent()) {
    if (const auto* service = dynamic_cast<const Service*>(each)) outermost = service;
  }
  return outermost;
}

}  // namespace

CallbackGuard::CallbackGuard(base::object& part) {
  const Service* outermost = OutermostService(part);
  if (outermost != nullptr) _callbacks = outermost->GetCallbacks();
  if (_callbacks != nullptr) _callbacks->Begin();
  for (base::object* each = &part; each != nullptr; each = each->Parent()) {
    if (each != outermost) _held.push_back(base::Keep(*each));
  }
}

CallbackGuard::~CallbackGuard() {
  _held.clear();  // before the outermost service goes on
  if (_callbacks != nullptr) _callbacks->End();
}

std::shared_ptr<Service::Callbacks> OwnerCallbacks(const base::object& part) {
  const Service* outermost = OutermostService(part);
  return outermost == nullptr ? nullptr : outermost->GetCallbacks();
}

}  // namespace quill::stream
