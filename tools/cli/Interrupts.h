// Ctrl-C and its relatives as an event instead of a death.
#pragma once

#include <functional>

namespace tessel::tool {

// From now on SIGINT, SIGTERM and SIGHUP wait for WatchInterrupts(). Before any other thread is
// started: those inherit it.
void HoldInterrupts();

// Calls `on_interrupt`, on a thread of its own, when the process is asked to end by SIGINT, SIGTERM
// or SIGHUP; the second time the process ends at once. Once a process, and before any other thread
// is started: those inherit that the signals are blocked. False when no thread can be had.
[[nodiscard]] bool WatchInterrupts(std::function<void()> on_interrupt);

}  // namespace tessel::tool
