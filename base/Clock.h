// The clock of time stamps and deadlines.
#pragma once

#include <cstdint>

#include <time.h>

namespace tessel {

inline constexpr std::int64_t kSecondNs = 1'000'000'000;

// CLOCK_MONOTONIC. Any thread.
inline std::int64_t NowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kSecondNs + now.tv_nsec;
}

}  // namespace tessel
