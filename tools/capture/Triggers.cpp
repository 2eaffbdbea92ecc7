#include "Triggers.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include <unistd.h>

namespace tessel::tool {

void Triggers::BeginEvery(std::chrono::milliseconds period, Clock::time_point start) {
  _period = period;
  _start = start;
}

bool Triggers::BeginLines(std::function<void()> wake) {
  _lines = std::make_shared<Lines>();
  try {
    std::thread([lines = _lines, wake = std::move(wake)] {
      char text[4096];
      char last = '\n';
      for (;;) {
        const ssize_t size_bytes = read(STDIN_FILENO, text, sizeof text);
        if (size_bytes < 0 && errno == EINTR) continue;
        if (size_bytes <= 0) break;
        last = text[size_bytes - 1];
        lines->count += static_cast<std::uint64_t>(std::count(text, text + size_bytes, '\n'));
        wake();
      }
      if (last != '\n') ++lines->count;  // the last line may lack its end
      lines->have_ended = true;
      wake();
    }).detach();  // a blocked read cannot be ended
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

std::uint64_t Triggers::Due(Clock::time_point now) const {
  if (_lines != nullptr) return _lines->count.load();
  if (_period.count() == 0 || now < _start) return 0;
  return static_cast<std::uint64_t>((now - _start) / _period) + 1;
}

std::optional<Triggers::Clock::time_point> Triggers::NextAfter(Clock::time_point now) const {
  if (_period.count() == 0) return std::nullopt;
  return now < _start ? _start : _start + _period * ((now - _start) / _period + 1);
}

}  // namespace tessel::tool
