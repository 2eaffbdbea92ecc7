// Bounds of waits.
#pragma once

#include <chrono>

namespace quill::stream {

// A deadline must not overflow the clock.
inline constexpr std::chrono::nanoseconds kLongestTimeout = std::chrono::hours(24);

// The time-out of commands that bring none of their own, and of waits between threads. Any thread.
std::chrono::nanoseconds CommandTimeout();
// The time that a real-time side that is started here has for its first answer. Any thread.
std::chrono::nanoseconds StartTimeout();

}  // namespace quill::stream
