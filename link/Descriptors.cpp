#include "Descriptors.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tessel::link {

UniqueFd::~UniqueFd() {
  if (_fd >= 0) close(_fd);
}

UniqueFd UniqueFd::AboveStandard(int fd) {
  if (fd < 0 || fd > STDERR_FILENO) return UniqueFd(fd);
  const UniqueFd low(fd);
  return low.Duplicate();
}

UniqueFd UniqueFd::Duplicate() const {
  return UniqueFd(fcntl(_fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

Bell Bell::Create() { return Bell(UniqueFd::AboveStandard(eventfd(0, EFD_CLOEXEC))); }

bool Bell::IsBell(int fd) {
  char target[32] = {};
  const std::string place = "/proc/self/fd/" + std::to_string(fd);
  return readlink(place.c_str(), target, sizeof target - 1) > 0 &&
         std::strcmp(target, "anon_inode:[eventfd]") == 0;
}

void Bell::Ring() const {
  const std::uint64_t one = 1;
  while (write(_fd.Get(), &one, sizeof one) < 0 && errno == EINTR) {
  }
}

void Bell::Sleep() const {
  std::uint64_t rings = 0;
  while (read(_fd.Get(), &rings, sizeof rings) < 0 && errno == EINTR) {
  }
}

}  // namespace tessel::link
