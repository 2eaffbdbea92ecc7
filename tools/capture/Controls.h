// What can be asked of a source, before it runs and while it runs: one row a value.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "Source.h"

namespace tessel::tool {

// The bounds that a fresh source has, relative to its bit rate; what is asked of a bit rate takes
// them along.
inline constexpr int kMaximumRatio = 2;
inline constexpr int kMinimumRatio = 20;

struct ControlRow {
  const char* name;  // the option "--name", and the key in "--set name=value@frame"
  const char* unit;
  bool is_scaled;  // takes "2M", "500k"
  int least;
  int most;
  unsigned kinds;    // that it can be asked of
  const char* lack;  // what is said of the others
  // No pointer to a member: SetBitRate() belongs to a virtual base, whose members do not convert.
  void (*set)(Source& source, int value);  // REQUIRES: source.kind is among `kinds`
  const char* help;
};

std::span<const ControlRow> ControlRows();
const ControlRow* FindControl(std::string_view name);
std::string ControlNames();  // for people, "fps, bitrate, …"

}  // namespace tessel::tool
