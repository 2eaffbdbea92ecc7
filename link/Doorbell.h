// The eventfd by which one process wakes the other.
#pragma once

#include <utility>

#include "UniqueFd.h"

namespace tessel::link {

// One process rings the eventfd, the other sleeps on it. The descriptor is in blocking mode, so
// that the sleeper needs a single system call. A ring does not block in practice: the counter has
// 64 bits.
class Doorbell {
 public:
  Doorbell() = default;
  explicit Doorbell(UniqueFd fd) : _fd(std::move(fd)) {}
  static Doorbell Create();
  bool IsOpen() const { return _fd.IsOpen(); }
  // Whether `fd`, which the peer has sent, is an eventfd.
  static bool IsDoorbell(int fd);
  int Fd() const { return _fd.Get(); }
  UniqueFd Duplicate() const { return _fd.Duplicate(); }
  void Ring() const;   // any thread
  void Sleep() const;  // until rung; returns at once if it was rung since the last Sleep()

 private:
  UniqueFd _fd;
};

}  // namespace tessel::link
