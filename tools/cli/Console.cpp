#include "Console.h"

#include <cstdarg>
#include <cstdio>

#include <unistd.h>

namespace tessel::tool {

void Say(const std::string& text) { std::fprintf(stderr, "tessel: %s\n", text.c_str()); }

std::string Quoted(std::string_view text) {
  std::string quoted("\"");
  quoted.append(text).append("\"");
  return quoted;
}

std::string Format(const char* format, ...) {
  va_list arguments;
  va_list again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

bool IsTerminal(int fd) { return isatty(fd) == 1; }

}  // namespace tessel::tool
