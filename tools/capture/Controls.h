// The rate-control values that can be set before a source runs and while it runs: one row a value.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tessel::tool {

// The bounds of a fresh source, relative to its bit rate. A bit rate that is set moves them along.
inline constexpr int kMaximumRatio = 2;
inline constexpr int kMinimumRatio = 20;

struct ControlRow {
  const char* name;  // the option "--name", and the key in "--set name=value@frame"
  const char* unit;
  bool is_scaled;  // takes "2M", "500k"
  int least;
  int most;
  const char* lack;  // what the error says of a source that does not take it
  const char* help;
};

std::span<const ControlRow> ControlRows();
const ControlRow* FindControl(std::string_view name);
std::string ControlNames();  // for people, "fps, bitrate, …"

}  // namespace tessel::tool
