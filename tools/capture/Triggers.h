// When to trigger frames: by the clock, or one for each line of standard input.
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
  // One for each line from now on. `wake` runs at each line and at the end of the input, on a
  // thread that lives as long as the process. Call once in a process. False when no thread can be
  // started.
  [[nodiscard]] bool BeginLines(std::function<void()> wake);

  // How many have become due. 0 before BeginEvery() or BeginLines().
  std::uint64_t Due(Clock::time_point now) const;
  // When the next one will be due; none when lines decide.
  std::optional<Clock::time_point> NextAfter(Clock::time_point now) const;
  // Whether no more will become due. Ask before Due(), whose count is final then.
  bool HasEnded() const { return _lines != nullptr && _lines->have_ended.load(); }

 private:
  struct Lines {
    std::atomic<std::uint64_t> count = 0;
    std::atomic<bool> have_ended = false;  // set after the last change of `count`
  };

  std::chrono::milliseconds _period{0};  // 0: not by the clock
  Clock::time_point _start;
  std::shared_ptr<Lines> _lines;
};

}  // namespace tessel::tool
