// Ctrl-C and similar signals as an event.
#pragma once

#include <functional>

namespace tessel::tool {

// Blocks SIGINT, SIGTERM and SIGHUP, which stay pending until WatchInterrupts(). Call before any
// other thread is started, as threads inherit the mask.
void HoldInterrupts();

// Calls `on_interrupt`, on a thread of its own, at the first SIGINT, SIGTERM or SIGHUP. The second
// one ends the process at once. Call once in a process, after HoldInterrupts(). False when no
// thread can be started.
[[nodiscard]] bool WatchInterrupts(std::function<void()> on_interrupt);

}  // namespace tessel::tool
