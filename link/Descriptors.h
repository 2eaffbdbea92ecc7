// Owned file descriptors, and the bell that wakes the other side.
#pragma once

#include <cstdint>
#include <utility>

#include "Clock.h"

namespace tessel::link {

// Owns a file descriptor.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : _fd(fd) {}
  // Takes over a descriptor that was just made, under a number above the standard ones: a program
  // that was started with one of those closed would read and write this one in its place. Not open,
  // with errno, when `fd` is not open or no number is left.
  static UniqueFd AboveStandard(int fd);
  UniqueFd(UniqueFd&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(_fd, other._fd);
    return *this;
  }
  ~UniqueFd();
  int Get() const { return _fd; }
  bool IsOpen() const { return _fd >= 0; }
  UniqueFd Duplicate() const;  // not open when that fails

 private:
  int _fd = -1;
};

// An eventfd: rung by one side, slept on by the other. It is left blocking, because the sleeper
// then needs one system call for a wake-up; nobody rings it often enough to block the ringer (the
// counter has 64 bits).
class Bell {
 public:
  Bell() = default;
  explicit Bell(UniqueFd fd) : _fd(std::move(fd)) {}
  static Bell Create();
  bool IsOpen() const { return _fd.IsOpen(); }
  // Whether a descriptor that the other side has sent is an eventfd at all.
  static bool IsBell(int fd);
  int Fd() const { return _fd.Get(); }
  UniqueFd Duplicate() const { return _fd.Duplicate(); }
  void Ring() const;   // any thread
  void Sleep() const;  // until rung; returns at once when it has been rung since the last Sleep

 private:
  UniqueFd _fd;
};

// Whether a look before the next sleep is worth its time: it is while waits have been shorter than
// the look, as they are under a flood of frames. A paced stream, whose waits are long, never looks.
class AdaptiveLook {
 public:
  // `longest_ns`: of a look.
  explicit AdaptiveLook(std::int64_t longest_ns = 20'000) : _longest_ns(longest_ns) {}

  // Calls `ready` for at most the longest look; true when it returned true.
  template <typename Ready>
  bool Look(Ready&& ready);
  // A wait has begun / has ended.
  void Begin() { _began_ns = NowNs(); }
  void End() { _is_worth_it = NowNs() - _began_ns < _longest_ns; }

 private:
  std::int64_t _longest_ns;
  std::int64_t _began_ns = 0;
  bool _is_worth_it = true;
};

template <typename Ready>
bool AdaptiveLook::Look(Ready&& ready) {
  if (!_is_worth_it) return false;
  while (NowNs() - _began_ns < _longest_ns) {
    for (int i = 0; i < 16; ++i) {  // the clock is dearer than a look
      if (ready()) return true;
#if defined(__x86_64__)
      __builtin_ia32_pause();
#endif
    }
  }
  return false;
}

}  // namespace tessel::link
