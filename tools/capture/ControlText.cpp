#include "ControlText.h"

#include <limits>

#include "Console.h"
#include "Units.h"

namespace tessel::tool {

bool ParseControl(const ControlRow& row, std::string_view text, int& value, std::string& error) {
  const bool is_read = row.is_scaled ? ParseScaled(text, row.least, row.most, value, error)
                                     : ParseWhole(text, row.least, row.most, value, error);
  if (!is_read && *row.unit != '\0') error += std::string(" (") + row.unit + ")";
  return is_read;
}

bool ParseSetting(std::string_view text, const ControlRow*& row, int& value, std::string& error) {
  const std::size_t equals = text.find('=');
  if (equals == text.npos) {
    error = Quoted(text) + " is not of the form key=value";
    return false;
  }
  const std::string_view key = text.substr(0, equals);
  row = FindControl(key);
  if (row == nullptr) {
    error = "no key " + Quoted(key) + "; there are " + ControlNames();
    return false;
  }
  if (ParseControl(*row, text.substr(equals + 1), value, error)) return true;
  error.insert(0, std::string(key) + ": ");
  return false;
}

bool ParseChange(std::string_view text, ControlChange& change, std::string& error) {
  const std::size_t at = text.rfind('@');
  if (at == text.npos || text.find('=') > at) {
    error = Quoted(text) + " is not of the form key=value@frame";
    return false;
  }
  if (!ParseSetting(text.substr(0, at), change.row, change.value, error)) return false;
  constexpr int kMostFrame = std::numeric_limits<int>::max();
  if (ParseWhole(text.substr(at + 1), 0, kMostFrame, change.frame, error)) return true;
  error.insert(0, "frame: ");
  return false;
}

}  // namespace tessel::tool
