// The streams of the real-time side as `tessel top` shows them.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include <sys/types.h>

#include "quill/Host.h"

namespace tessel::tool {

// A stream, and what it did since the look before.
struct StreamRow {
  quill::host::RtosStream stream;
  std::optional<double> frames_per_second;  // delivered by the real-time side
};

// Measures the frame rates of the streams from look to look. One thread at a time.
class FrameRates {
 public:
  using Clock = std::chrono::steady_clock;

  std::vector<StreamRow> Add(std::vector<quill::host::RtosStream> streams, Clock::time_point now);

 private:
  std::map<int, std::uint64_t> _published;  // by stream, at the last look
  Clock::time_point _last;
  pid_t _process = 0;
};

// To standard output: a table for people, or one JSON line for each stream.
void PrintScreen(const std::vector<StreamRow>& rows);
void PrintJson(const std::vector<StreamRow>& rows);

}  // namespace tessel::tool
