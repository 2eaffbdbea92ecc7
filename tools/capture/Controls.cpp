#include "Controls.h"

namespace tessel::tool {
namespace {

constexpr int kMostBps = 1'000'000'000;  // twice that, as a limit, is still an int
constexpr int kMostQp = 51;              // ITU-T H.264, 8 bits a sample
constexpr int kMostFps = 1000;

constexpr ControlRow kRows[] = {
    {"fps", "frames/s", false, 1, kMostFps, "captures at 30 frames/s",
     "Frame rate; a source of variable rate is thinned to it"},
    {"capture-fps", "frames/s", false, 1, kMostFps, "has one frame rate only",
     "Rate to capture at, where --fps thins"},
    {"bitrate", "bit/s", true, 1'000, kMostBps, "has no bit rate to hold",
     "Bit rate to hold; AAC keeps it for the whole capture"},
    {"bitrate-min", "bit/s", true, 0, kMostBps, "has no bit rate to hold",
     "Lower bound of the bit rate [1/20 of the bit rate]"},
    {"bitrate-max", "bit/s", true, 1'000, 2 * kMostBps, "has no bit rate to hold",
     "Upper bound of the bit rate [twice the bit rate]"},
    {"qp", "", false, 0, kMostQp, "has no encoder", "Fixed quantiser; 0: the encoder decides"},
    {"qp-min", "", false, 0, kMostQp, "has no rate control", "Least quantiser of rate control"},
    {"qp-max", "", false, 0, kMostQp, "has no rate control", "Greatest quantiser of rate control"},
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

}  // namespace tessel::tool
