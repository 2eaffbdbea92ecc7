// URLs of files.
#include <string_view>

#include <strings.h>

#include "quill/Host.h"

namespace quill::host {
namespace {

constexpr std::string_view kScheme = "file://";

int HexValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  const char lower = static_cast<char>(digit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Decodes the "%" and two hexadecimal digits at the front of `text`; -1 when they are no code.
int PercentCode(std::string_view text) {
  if (text.size() < 3) return -1;
  // "%03d" numbers files; nobody means the control character 3 and a "d".
  const bool is_pattern =
      text[1] == '0' && text[2] >= '1' && text[2] <= '9' && text.size() > 3 && text[3] == 'd';
  const int high = HexValue(text[1]);
  const int low = HexValue(text[2]);
  return is_pattern || high < 0 || low < 0 ? -1 : high * 16 + low;
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

std::string FileUrlOf(const std::string& path) {
  std::string url(kScheme);
  for (const char letter : path) {
    url += letter;
    if (letter == '%') url += "25";  // its own code
  }
  return url;
}

}  // namespace quill::host
