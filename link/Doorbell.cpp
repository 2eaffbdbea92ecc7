#include "Doorbell.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <sys/eventfd.h>
#include <unistd.h>

namespace tessel::link {

Doorbell Doorbell::Create() { return Doorbell(UniqueFd::AboveStandard(eventfd(0, EFD_CLOEXEC))); }

bool Doorbell::IsDoorbell(int fd) {
  char target[32] = {};
  const std::string place = "/proc/self/fd/" + std::to_string(fd);
  return readlink(place.c_str(), target, sizeof target - 1) > 0 &&
         std::strcmp(target, "anon_inode:[eventfd]") == 0;
}

void Doorbell::Ring() const {
  const std::uint64_t one = 1;
  while (write(_fd.Get(), &one, sizeof one) < 0 && errno == EINTR) {
  }
}

void Doorbell::Sleep() const {
  std::uint64_t rings = 0;
  while (read(_fd.Get(), &rings, sizeof rings) < 0 && errno == EINTR) {
  }
}

}  // namespace tessel::link
