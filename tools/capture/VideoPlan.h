// What the user wants of the sources of a capture, before they open and while the video runs.
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

  // Asks for what the frame `number` is to have. A live source captures it after the one before has
  // come; one that is unpaced is ahead by then, and answers a few frames later.
  void Prepare(std::uint64_t number);

  // The rest is for sources that are triggered; the others never ask.
  // `wake` runs on another thread when more is to be asked for. False when no thread can be had.
  [[nodiscard]] bool BeginTriggers(Clock::time_point start, std::function<void()> wake);
  // Triggers what is due, but no more than the frames that are wanted when `frames` have come.
  void Ask(Clock::time_point now, std::uint64_t frames);
  // A frame has come.
  void Answer(Clock::time_point now);
  // When there will be something to ask for, `latest` at the latest.
  Clock::time_point NextLook(Clock::time_point now, Clock::time_point latest) const;
  // Whether all triggered frames are there and no other ones will be asked for.
  bool HasAllAskedFor() const { return _asks_no_more && _answered >= _asked; }
  // How many triggered frames have not come.
  std::uint64_t Missing() const { return _asked > _answered ? _asked - _answered : 0; }
  // Whether the missing ones will not come any more.
  bool HasStalled(Clock::time_point now) const;

 private:
  CaptureSource& _source;
  const CaptureOptions& _options;
  std::vector<ControlChange> _changes;  // by frame, those still to come from _next_change on
  std::size_t _next_change = 0;

  Triggers _triggers;
  Clock::time_point _start;
  bool _asks_no_more = false;
  std::uint64_t _asked = 0;      // frames
  std::uint64_t _answered = 0;   // of these
  Clock::time_point _last_news;  // an answer, or the end of asking
};

}  // namespace tessel::tool
