#include "AtomicFile.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quill::stream {
namespace {

std::string Reason() { return std::strerror(errno); }

std::string FolderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

// Creates a file beside `path`; its name is stored in `temporary`. Process numbers are reused, so a
// file of a dead process may have the name already.
tessel::UniqueFd CreateBeside(const std::string& path, std::string& temporary) {
  static std::atomic<unsigned> last{0};
  constexpr int kMostNames = 1000;
  for (int i = 0; i < kMostNames; ++i) {
    temporary =
        FolderOf(path) + ".tessel-" + std::to_string(getpid()) + "-" + std::to_string(++last);
    auto file = tessel::UniqueFd::AboveStandard(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file.IsOpen() || errno != EEXIST) return file;
  }
  return {};
}

bool WriteAll(int fd, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return fsync(fd) == 0;
}

}  // namespace

std::optional<AtomicFile> AtomicFile::Open(const std::string& path, std::string& error) {
  struct stat older = {};
  const bool is_there = stat(path.c_str(), &older) == 0;
  if (is_there && !S_ISREG(older.st_mode)) {
    error = S_ISDIR(older.st_mode) ? "is a folder" : "is no regular file";
    return std::nullopt;
  }
  if (!is_there && errno != ENOENT) {  // a name too long, a folder that may not be searched
    error = Reason();
    return std::nullopt;
  }
  AtomicFile whole;
  whole._path = path;
  whole._file = CreateBeside(path, whole._temporary);
  if (whole._file.IsOpen()) return whole;
  error = Reason();
  return std::nullopt;
}

AtomicFile::~AtomicFile() {
  if (_file.IsOpen()) unlink(_temporary.c_str());
}

bool AtomicFile::Finish(std::span<const std::uint8_t> bytes, std::string& error) {
  if (!WriteAll(_file.Get(), bytes) || rename(_temporary.c_str(), _path.c_str()) != 0) {
    error = Reason();
    return false;
  }
  _file = {};
  return true;
}

}  // namespace quill::stream
