#include "FileUrl.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Descriptors.h"

namespace quill::stream {
namespace {

constexpr std::string_view kScheme = "file://";

int HexValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  const char lower = static_cast<char>(digit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The byte that the "%" at the front of `text` and what follows stand for; -1: none.
int PercentCode(std::string_view text) {
  if (text.size() < 3) return -1;
  // "%03d" numbers files; nobody means the control character 3 and a "d".
  const bool is_pattern =
      text[1] == '0' && text[2] >= '1' && text[2] <= '9' && text.size() > 3 && text[3] == 'd';
  const int high = HexValue(text[1]);
  const int low = HexValue(text[2]);
  return is_pattern || high < 0 || low < 0 ? -1 : high * 16 + low;
}

std::string Reason() { return std::strerror(errno); }

std::string FolderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

// A name that nothing else in the folder has, whatever process writes there.
std::string TemporaryName(const std::string& path) {
  static std::atomic<unsigned> last{0};
  return FolderOf(path) + ".tessel-" + std::to_string(getpid()) + "-" + std::to_string(++last);
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

bool ReadFileUrl(const std::string& url, std::string& path, std::string& error) {
  if (strncasecmp(url.c_str(), kScheme.data(), kScheme.size()) != 0) {
    error = "is no file:// URL";
    return false;
  }
  const std::string_view text = std::string_view(url).substr(kScheme.size());
  std::string read;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int code = text[i] == '%' ? PercentCode(text.substr(i)) : -1;
    read += code < 0 ? text[i] : static_cast<char>(code);
    if (code >= 0) i += 2;
  }
  if (read.find('\0') != std::string::npos) {
    error = "has a zero byte in its path";
  } else if (read.empty() || read.back() == '/') {
    error = "names no file";
  } else {
    path = read;
    return true;
  }
  return false;
}

bool WriteWholeFile(const std::string& path, std::span<const std::uint8_t> bytes,
                    std::string& error) {
  struct stat older = {};
  const bool is_there = stat(path.c_str(), &older) == 0;
  if (is_there && !S_ISREG(older.st_mode)) {
    error = S_ISDIR(older.st_mode) ? "is a folder" : "is no regular file";
    return false;
  }
  if (!is_there && errno != ENOENT) {  // a name too long, a folder that may not be searched
    error = Reason();
    return false;
  }
  const std::string temporary = TemporaryName(path);
  const tessel::link::UniqueFd file(
      open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!file.IsOpen()) {
    error = Reason();
    return false;
  }
  if (WriteAll(file.Get(), bytes) && rename(temporary.c_str(), path.c_str()) == 0) return true;
  error = Reason();
  unlink(temporary.c_str());
  return false;
}

}  // namespace quill::stream
