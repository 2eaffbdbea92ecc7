#include "UniqueFd.h"

#include <fcntl.h>
#include <unistd.h>

namespace tessel {

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

}  // namespace tessel
