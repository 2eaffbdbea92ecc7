#include "SharedWindow.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>

namespace tessel::link {
namespace {

constexpr int kSizeSeals = F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL;

std::string Reason(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

// False for huge pages: touching one raises SIGBUS when the system has none left.
bool IsOrdinaryMemory(int fd) {
  struct statfs system = {};
  return fstatfs(fd, &system) == 0 && system.f_type == TMPFS_MAGIC;
}

}  // namespace

std::size_t SharedWindow::MostBytes() {
  rlimit limit = {};
  const bool is_limited = getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
  return is_limited ? limit.rlim_cur : SIZE_MAX;
}

std::unique_ptr<SharedWindow> SharedWindow::Create(std::size_t size_bytes, std::string& error) {
  if (size_bytes > MostBytes()) {  // the attempt would raise SIGXFSZ
    error = "cannot make the shared window: the limit on file sizes (ulimit -f), " +
            std::to_string(MostBytes()) + " bytes, is below its " + std::to_string(size_bytes);
    return nullptr;
  }
  auto fd = UniqueFd::AboveStandard(memfd_create("tessel-window", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!fd.IsOpen() || ftruncate(fd.Get(), static_cast<off_t>(size_bytes)) != 0 ||
      fcntl(fd.Get(), F_ADD_SEALS, kSizeSeals) != 0) {
    error = Reason("cannot make the shared window");
    return nullptr;
  }
  return Map(std::move(fd), error);
}

std::unique_ptr<SharedWindow> SharedWindow::Attach(UniqueFd fd, std::string& error) {
  const int seals = fcntl(fd.Get(), F_GET_SEALS);
  if (seals < 0 || (seals & kSizeSeals) != kSizeSeals) {
    error = "the shared window is not sealed: its size could change while it is mapped";
    return nullptr;
  }
  if (!IsOrdinaryMemory(fd.Get())) {
    error = "the shared window is of huge pages, which the system may lack when they are touched";
    return nullptr;
  }
  return Map(std::move(fd), error);
}

std::unique_ptr<SharedWindow> SharedWindow::Map(UniqueFd fd, std::string& error) {
  struct stat status = {};
  if (fstat(fd.Get(), &status) != 0 || status.st_size <= 0) {
    error = Reason("cannot measure the shared window");
    return nullptr;
  }
  const auto size_bytes = static_cast<std::size_t>(status.st_size);
  void* base =
      mmap(nullptr, size_bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, fd.Get(), 0);
  if (base == MAP_FAILED) {
    error = Reason("cannot map the shared window");
    return nullptr;
  }
  return std::unique_ptr<SharedWindow>(
      new SharedWindow(std::move(fd), static_cast<std::byte*>(base), size_bytes));
}

SharedWindow::~SharedWindow() { munmap(_base, _size_bytes); }

std::span<std::byte> SharedWindow::Area(std::uint64_t offset, std::uint64_t size_bytes) const {
  if (offset > _size_bytes || size_bytes > _size_bytes - offset) return {};
  return {_base + offset, size_bytes};
}

void SharedWindow::Clear(std::span<std::byte> area) const {
  if (madvise(area.data(), area.size(), MADV_REMOVE) != 0) {
    std::memset(area.data(), 0, area.size());  // reads the same, but keeps the pages
  }
}

}  // namespace tessel::link
