// Messages and exit codes of the tool. Results go to stdout, everything else to stderr.
#pragma once

#include <string>
#include <string_view>

namespace tessel::tool {

enum Exit : int {
  kDone = 0,
  kFailed = 1,
  kWrongUsage = 2,
};

// Prints one line to stderr, after the program's name. Any thread.
void Say(const std::string& text);

// In quotation marks.
std::string Quoted(std::string_view text);

// As std::printf does it.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);

bool IsTerminal(int fd);

}  // namespace tessel::tool
