// Owned file descriptors.
#pragma once

#include <utility>

namespace tessel {

// Owns a file descriptor.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : _fd(fd) {}
  // Takes ownership of a new descriptor and moves it to a number above 2. In a program that was
  // started without standard input, output or error, a new descriptor can get that number and would
  // be read or written in its place. Not open, with errno set, when `fd` is not open or no number
  // is left.
  static UniqueFd AboveStandard(int fd);
  UniqueFd(UniqueFd&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(_fd, other._fd);
    return *this;
  }
  ~UniqueFd();
  int Get() const { return _fd; }
  bool IsOpen() const { return _fd >= 0; }
  UniqueFd Duplicate() const;  // not open on failure

 private:
  int _fd = -1;
};

}  // namespace tessel
