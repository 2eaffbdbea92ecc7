// Rate-control values as they are typed.
#pragma once

#include <string>
#include <string_view>

#include "Controls.h"

namespace tessel::tool {

// False with `error` when `text` is no value of that row.
[[nodiscard]] bool ParseControl(const ControlRow& row, std::string_view text, int& value,
                                std::string& error);

// Reads "key=value". False with `error` naming the part that is wrong.
[[nodiscard]] bool ParseSetting(std::string_view text, const ControlRow*& row, int& value,
                                std::string& error);

// A value, and the frame from which on it holds.
struct ControlChange {
  const ControlRow* row;
  int value;
  int frame;
};
// Reads "key=value@frame". False with `error` naming the part that is wrong.
[[nodiscard]] bool ParseChange(std::string_view text, ControlChange& change, std::string& error);

}  // namespace tessel::tool
