// The line that shows on a terminal how a capture is going.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>

namespace tessel::tool {

// One thread at a time.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  struct Values {
    std::uint64_t frames = 0;
    double seconds = 0;       // of the stream
    bool is_encoded = false;  // else the next two say nothing
    int bit_rate_bps = 0;
    int qp = 0;  // 0: rate control decides
    std::uint64_t dropped = 0;
  };

  // Shows nothing unless `wanted` and stderr is a terminal.
  explicit Progress(bool wanted);

  bool IsDue(Clock::time_point now) const { return _is_shown && now >= _next; }
  void Show(Clock::time_point now, const Values& values);
  // Makes room for another line.
  void Clear();

 private:
  struct Sample {
    Clock::time_point time;
    std::uint64_t frames;
  };

  const bool _is_shown;
  bool _has_line = false;
  Clock::time_point _next;
  std::deque<Sample> _recent;  // what the frame rate is measured over
};

}  // namespace tessel::tool
