// A short spin before a thread sleeps, used while recent waits were short.
#pragma once

#include <cstdint>

#include "Clock.h"

namespace tessel::link {

// Spins before sleeping while recent waits were shorter than the spin, as they are under a flood of
// frames. A paced stream, whose waits are long, never spins. One thread at a time.
class AdaptiveSpin {
 public:
  explicit AdaptiveSpin(std::int64_t longest_ns = 20'000) : _longest_ns(longest_ns) {}

  // Call between Begin() and End(). Calls `ready` until it returns true or the longest spin is
  // over. True if `ready` returned true.
  template <typename Ready>
  bool Spin(Ready&& ready);
  // The beginning and the end of one wait, its sleep included.
  void Begin() { _began_ns = NowNs(); }
  void End() { _is_worth_it = NowNs() - _began_ns < _longest_ns; }

 private:
  std::int64_t _longest_ns;
  std::int64_t _began_ns = 0;
  bool _is_worth_it = true;
};

template <typename Ready>
bool AdaptiveSpin::Spin(Ready&& ready) {
  if (!_is_worth_it) return false;
  while (NowNs() - _began_ns < _longest_ns) {
    for (int i = 0; i < 16; ++i) {  // reading the clock costs more than `ready`
      if (ready()) return true;
#if defined(__x86_64__)
      __builtin_ia32_pause();
#endif
    }
  }
  return false;
}

}  // namespace tessel::link
