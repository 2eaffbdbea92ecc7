// Owned file descriptors.
#pragma once

#include <utility>

namespace tessel {

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

}  // namespace tessel
