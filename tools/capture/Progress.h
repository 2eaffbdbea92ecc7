// The progress of a capture on a terminal: one line for the video, one for the sound.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "SoundMeter.h"

namespace tessel::tool {

// One thread at a time.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  struct Video {
    std::uint64_t frames = 0;
    bool is_encoded = false;  // else the next two have no meaning
    int bit_rate_bps = 0;
    int qp = 0;  // 0: rate control decides
  };
  // REQUIRES: video or sound.
  struct Values {
    double seconds = 0;  // of the stream that is ahead
    std::optional<Video> video;
    std::vector<SoundMeter::Level> sound;  // a channel each
    std::uint64_t dropped = 0;
  };

  // Shows nothing unless `wanted` and stderr is a terminal.
  explicit Progress(bool wanted);

  bool IsDue(Clock::time_point now) const { return _is_shown && now >= _next; }
  void Show(Clock::time_point now, const Values& values);
  // Erases the lines, so that others can be printed.
  void Clear();

 private:
  struct Sample {
    Clock::time_point time;
    std::uint64_t frames;
  };
  double FrameRate(Clock::time_point now, std::uint64_t frames);

  const bool _is_shown;
  int _lines = 0;  // that are shown
  Clock::time_point _next;
  std::deque<Sample> _recent;  // what the frame rate is measured over
};

// A level as a bar from -60 dBFS to 0: "=" up to the RMS, "|" at the peak.
std::string LevelBar(const SoundMeter::Level& level);

}  // namespace tessel::tool
