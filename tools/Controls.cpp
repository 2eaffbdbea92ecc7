#include "Controls.h"

#include <limits>

#include "Console.h"
#include "Units.h"

namespace tessel::tool {
namespace {

constexpr int kMostBps = 1'000'000'000;  // twice that, as a limit, is still an int
constexpr int kMostQp = 51;              // ITU-T H.264, 8 bits a sample
constexpr int kMostFps = 1000;

constexpr ControlRow kRows[] = {
    {"fps", "frames/s", false, 1, kMostFps, kAnyVideo & ~kRaw, "captures at 30 frames/s",
     [](Source& source, int value) { source.SetFrameRate(value); },
     "Frame rate; a source of variable rate is thinned to it"},
    {"capture-fps", "frames/s", false, 1, kMostFps, kH264Variable, "has one frame rate only",
     [](Source& source, int value) { source.control->SetFrameRateMaximum(value); },
     "Rate to capture at, where --fps thins"},
    {"bitrate", "bit/s", true, 1'000, kMostBps, kAnyH264 | kAac, "has no bit rate to hold",
     [](Source& source, int value) { source.encoder->SetBitRate(value); },
     "Bit rate to hold; of AAC alone the one of all its life"},
    {"bitrate-min", "bit/s", true, 0, kMostBps, kAnyH264, "has no bit rate to hold",
     [](Source& source, int value) { source.control->SetBitRateMinimum(value); },
     "Lower bound of the bit rate [1/20 of the bit rate]"},
    {"bitrate-max", "bit/s", true, 1'000, 2 * kMostBps, kAnyH264, "has no bit rate to hold",
     [](Source& source, int value) { source.control->SetBitRateMaximum(value); },
     "Upper bound of the bit rate [twice the bit rate]"},
    {"qp", "", false, 0, kMostQp, kAnyH264 | kJpeg, "has no encoder",
     [](Source& source, int value) { source.control->SetQP(value); },
     "Fixed quantiser; 0: the encoder decides"},
    {"qp-min", "", false, 0, kMostQp, kAnyH264, "has no rate control",
     [](Source& source, int value) { source.control->SetQPMinimum(value); },
     "Least quantiser of rate control"},
    {"qp-max", "", false, 0, kMostQp, kAnyH264, "has no rate control",
     [](Source& source, int value) { source.control->SetQPMaximum(value); },
     "Greatest quantiser of rate control"},
};

}  // namespace

std::span<const ControlRow> ControlRows() { return kRows; }

std::string ControlNames() {
  std::string names;
  for (const ControlRow& row : kRows) names += (names.empty() ? "" : ", ") + std::string(row.name);
  return names;
}

const ControlRow* FindControl(std::string_view name) {
  for (const ControlRow& row : kRows) {
    if (name == row.name) return &row;
  }
  return nullptr;
}

bool ParseControl(const ControlRow& row, std::string_view text, int& value, std::string& error) {
  const bool is_read = row.is_scaled ? ParseScaled(text, row.least, row.most, value, error)
                                     : ParseWhole(text, row.least, row.most, value, error);
  if (!is_read && *row.unit != '\0') error += std::string(" (") + row.unit + ")";
  return is_read;
}

bool ParseChange(std::string_view text, ControlChange& change, std::string& error) {
  const std::size_t equals = text.find('=');
  const std::size_t at = text.rfind('@');
  if (equals == text.npos || at == text.npos || at < equals) {
    error = Quoted(text) + " is not of the form key=value@frame";
    return false;
  }
  const std::string_view key = text.substr(0, equals);
  change.row = FindControl(key);
  if (change.row == nullptr) {
    error = "no key " + Quoted(key) + "; there are " + ControlNames();
    return false;
  }
  std::string reason;
  if (!ParseControl(*change.row, text.substr(equals + 1, at - equals - 1), change.value, reason)) {
    error = std::string(key) + ": " + reason;
    return false;
  }
  constexpr int kMostFrame = std::numeric_limits<int>::max();
  if (ParseWhole(text.substr(at + 1), 0, kMostFrame, change.frame, reason)) return true;
  error = "frame: " + reason;
  return false;
}

}  // namespace tessel::tool
