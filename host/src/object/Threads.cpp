#include "Threads.h"

#include <system_error>

#include <pthread.h>
#include <signal.h>

#include "quill/Debug.h"

namespace quill::stream {
namespace {

thread_local bool t_is_host_thread = false;

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

void LogCallbackException() {
  try {
    throw;
  } catch (const std::exception& error) {
    Fail("!callback", "a callback has thrown: ", error.what());
  } catch (...) {
    Fail("!callback", "a callback has thrown");
  }
}

}  // namespace quill::stream
