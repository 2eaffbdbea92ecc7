// The event descriptor that wakes the other side.
#pragma once

#include <utility>

#include "UniqueFd.h"

namespace tessel::link {

// An eventfd: rung by one side, slept on by the other. It is left blocking, because the sleeper
// then needs one system call for a wake-up; nobody rings it often enough to block the ringer (the
// counter has 64 bits).
class Doorbell {
 public:
  Doorbell() = default;
  explicit Doorbell(UniqueFd fd) : _fd(std::move(fd)) {}
  static Doorbell Create();
  bool IsOpen() const { return _fd.IsOpen(); }
  // Whether a descriptor that the other side has sent is an eventfd at all.
  static bool IsDoorbell(int fd);
  int Fd() const { return _fd.Get(); }
  UniqueFd Duplicate() const { return _fd.Duplicate(); }
  void Ring() const;   // any thread
  void Sleep() const;  // until rung; returns at once when it has been rung since the last Sleep

 private:
  UniqueFd _fd;
};

}  // namespace tessel::link
