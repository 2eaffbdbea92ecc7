#include "Progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

#include <sys/ioctl.h>
#include <unistd.h>

#include "Console.h"

namespace tessel::tool {
namespace {

constexpr std::chrono::milliseconds kRefresh(250);
constexpr std::size_t kSamples = 9;  // two seconds of refreshes

constexpr int kBarCells = 10;  // two channels fit into 80 columns
constexpr double kBarFloorDb = -60;

// How many cells of a bar a level fills.
int Reach(double level_db) {
  const double share = 1 - std::max(level_db, kBarFloorDb) / kBarFloorDb;
  return std::clamp(static_cast<int>(std::lround(share * kBarCells)), 0, kBarCells);
}

// A longer line would wrap, and could not be erased.
std::size_t LineWidth() {
  winsize size = {};
  const bool is_known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return is_known ? size.ws_col - std::size_t{1} : 79;
}

}  // namespace

std::string LevelBar(const SoundMeter::Level& level) {
  const auto cells = [](int count) { return static_cast<std::size_t>(count); };
  std::string bar(cells(kBarCells), ' ');
  std::fill_n(bar.begin(), Reach(level.rms_db), '=');
  if (const int peak = Reach(level.peak_db); peak > 0) bar[cells(peak - 1)] = '|';
  return "[" + bar + "]";
}

Progress::Progress(bool wanted) : _is_shown(wanted && IsTerminal(STDERR_FILENO)) {}

double Progress::FrameRate(Clock::time_point now, std::uint64_t frames) {
  _recent.push_back({now, frames});
  if (_recent.size() > kSamples) _recent.pop_front();
  const std::chrono::duration<double> span = now - _recent.front().time;
  const auto count = static_cast<double>(frames - _recent.front().frames);
  return span.count() > 0 ? count / span.count() : 0;
}

void Progress::Show(Clock::time_point now, const Values& values) {
  _next = now + kRefresh;
  std::vector<std::string> lines;
  if (const auto& video = values.video) {
    std::string line =
        Format("%llu frames  %.1f s  %.1f frames/s", static_cast<unsigned long long>(video->frames),
               values.seconds, FrameRate(now, video->frames));
    const std::string qp = video->qp == 0 ? "auto" : std::to_string(video->qp);
    if (video->is_encoded) {
      line += Format("  %d kbit/s  QP %s", video->bit_rate_bps / 1000, qp.c_str());
    }
    lines.push_back(std::move(line));
  }
  if (!values.sound.empty()) {
    std::string line = values.video ? "sound" : Format("%.1f s", values.seconds);
    for (const SoundMeter::Level& level : values.sound) {
      line += Format("  %s%6.1f,%6.1f", LevelBar(level).c_str(), level.rms_db, level.peak_db);
    }
    lines.push_back(line + " dBFS");
  }
  lines.front() += Format("  %llu dropped", static_cast<unsigned long long>(values.dropped));
  Clear();
  for (std::string& line : lines) {
    line.resize(std::min(line.size(), LineWidth()));
    std::fprintf(stderr, "%s%s", _lines++ == 0 ? "" : "\n", line.c_str());
  }
}

void Progress::Clear() {
  for (; _lines > 0; --_lines) std::fputs(_lines > 1 ? "\r\033[K\033[A" : "\r\033[K", stderr);
}

}  // namespace tessel::tool
