#include "Interrupts.h"

#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

namespace tessel::tool {
namespace {

constexpr std::chrono::milliseconds kSameInterrupt(250);
constexpr int kSignalExit = 128;  // plus the signal's number, as shells report it

// Under nohup the process ignores hang-ups, and must go on doing so.
bool IsIgnored(int number) {
  struct sigaction action = {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t Signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  if (!IsIgnored(SIGHUP)) sigaddset(&signals, SIGHUP);
  return signals;
}

}  // namespace

void HoldInterrupts() {
  const sigset_t signals = Signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

bool WatchInterrupts(std::function<void()> on_interrupt) {
  try {
    std::thread([signals = Signals(), on_interrupt = std::move(on_interrupt)] {
      int number = 0;
      while (sigwait(&signals, &number) != 0) {
      }
      on_interrupt();
      // Some programs signal a process and then its group: both signals are one interrupt.
      std::this_thread::sleep_for(kSameInterrupt);
      const timespec at_once = {};
      while (sigtimedwait(&signals, nullptr, &at_once) > 0) {
      }
      while (sigwait(&signals, &number) != 0) {
      }
      _exit(kSignalExit + number);  // without waiting for what the first one started
    }).detach();                    // it lives as long as the process
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

}  // namespace tessel::tool
