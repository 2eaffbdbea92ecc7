#include "Progress.h"

#include <cstdio>
#include <string>

#include <unistd.h>

#include "Console.h"

namespace tessel::tool {
namespace {

constexpr std::chrono::milliseconds kRefresh(250);
constexpr std::size_t kSamples = 9;  // two seconds of refreshes

}  // namespace

Progress::Progress(bool wanted) : _is_shown(wanted && IsTerminal(STDERR_FILENO)) {}

void Progress::Show(Clock::time_point now, const Values& values) {
  _next = now + kRefresh;
  _recent.push_back({now, values.frames});
  if (_recent.size() > kSamples) _recent.pop_front();
  const std::chrono::duration<double> span = now - _recent.front().time;
  const auto frames = static_cast<double>(values.frames - _recent.front().frames);
  const std::string qp = values.qp == 0 ? "auto" : std::to_string(values.qp);
  std::string line =
      Format("%llu frames  %.1f s  %.1f frames/s", static_cast<unsigned long long>(values.frames),
             values.seconds, span.count() > 0 ? frames / span.count() : 0.0);
  if (values.is_encoded) {
    line += Format("  %d kbit/s  QP %s", values.bit_rate_bps / 1000, qp.c_str());
  }
  line += Format("  %llu dropped", static_cast<unsigned long long>(values.dropped));
  std::fprintf(stderr, "\r%s\033[K", line.c_str());
  _has_line = true;
}

void Progress::Clear() {
  if (_has_line) std::fputs("\r\033[K", stderr);
  _has_line = false;
}

}  // namespace tessel::tool
