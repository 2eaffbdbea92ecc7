// Applies the options to the sources of a capture: before they open, and to video while it runs.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "CaptureOptions.h"
#include "Triggers.h"

namespace tessel::tool {

// Sets what the options ask for from the start. REQUIRES: CheckFor(sources, options).
void Configure(std::span<CaptureSource> sources, const CaptureOptions& options);

// Changes, key frames and triggers of the video while it runs. Client's thread.
class VideoPlan {
 public:
  using Clock = Triggers::Clock;

  // Borrows both for its life.
  VideoPlan(CaptureSource& source, const CaptureOptions& options);

  // Requests the changes and the key frame for the frame `number`. Call when the frame before it
  // has come: a live source serves them with that frame, an unpaced one is ahead and serves them
  // later.
  void Prepare(std::uint64_t number);

  // The rest is for triggered sources.
  // `wake` runs on another thread when a trigger becomes due. False when no thread can be started.
  [[nodiscard]] bool BeginTriggers(Clock::time_point start, std::function<void()> wake);
  // Triggers the frames that are due, but no more than the options ask for. `frames` are written.
  void Ask(Clock::time_point now, std::uint64_t frames);
  // A frame has come.
  void Answer(Clock::time_point now);
  // When the next trigger is due, `latest` at the latest.
  Clock::time_point NextLook(Clock::time_point now, Clock::time_point latest) const;
  // Whether all triggered frames have come and no more will be triggered.
  bool HasAllAskedFor() const { return _asks_no_more && _answered >= _asked; }
  // How many triggered frames have not come.
  std::uint64_t Missing() const { return _asked > _answered ? _asked - _answered : 0; }
  // Whether the source has stopped delivering triggered frames.
  bool HasStalled(Clock::time_point now) const;

 private:
  CaptureSource& _source;
  const CaptureOptions& _options;
  std::vector<ControlChange> _changes;  // by frame; the next one is at _next_change
  std::size_t _next_change = 0;

  Triggers _triggers;
  Clock::time_point _start;
  bool _asks_no_more = false;
  std::uint64_t _asked = 0;      // frames
  std::uint64_t _answered = 0;   // of these
  Clock::time_point _last_news;  // the latest frame, or the end of the triggers
};

}  // namespace tessel::tool
