// When single frames are to be asked for: by the clock, or a line of standard input each.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace tessel::tool {

// Client's thread.
class Triggers {
 public:
  using Clock = std::chrono::steady_clock;

  // One at `start`, then one every `period`.
  void BeginEvery(std::chrono::milliseconds period, Clock::time_point start);
  // One a line from now on, once a process. `wake` runs on a thread of its own, which lives as long
  // as the process, when a line or the end is there. False when no thread can be had.
  [[nodiscard]] bool BeginLines(std::function<void()> wake);

  // How many have become due since the begin. None, whatever was asked for, before one began.
  std::uint64_t Due(Clock::time_point now) const;
  // When the next one will be due, where that is known.
  std::optional<Clock::time_point> NextAfter(Clock::time_point now) const;
  // No other one will become due: ask before Due().
  bool HasEnded() const { return _lines != nullptr && _lines->have_ended.load(); }

 private:
  struct Lines {
    std::atomic<std::uint64_t> count = 0;
    std::atomic<bool> have_ended = false;  // set behind the last change of `count`
  };

  std::chrono::milliseconds _period{0};  // 0: not by the clock
  Clock::time_point _start;
  std::shared_ptr<Lines> _lines;
};

}  // namespace tessel::tool
