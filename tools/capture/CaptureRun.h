// One capture, from opening its sources to finishing the file.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CaptureFile.h"
#include "CaptureOptions.h"
#include "FrameInbox.h"
#include "Progress.h"
#include "Track.h"
#include "VideoPlan.h"

namespace tessel::tool {

// All streams end together: at the time asked for, or where the first of them ends. Client's
// thread.
class CaptureRun {
 public:
  // Borrows options and container for its life. REQUIRES: CheckFor(sources, options), Configure(),
  // video before sound, and a lane for each source.
  CaptureRun(const CaptureOptions& options, const Container& container,
             std::vector<CaptureSource> sources, std::shared_ptr<FrameInbox> inbox);
  CaptureRun(const CaptureRun&) = delete;
  CaptureRun& operator=(const CaptureRun&) = delete;

  int Run();  // the exit code

 private:
  using Clock = FrameInbox::Clock;

  bool Open();
  bool Start();
  void MoveFrames();
  void Gather();
  Clock::time_point NextLook() const;
  unsigned WantedLanes() const;
  bool TakeNews(FrameInbox::News news, const FrameInbox::Item& item);
  bool TakeFrame(Track& track, Track::frame_t& frame);
  bool Begin(const Track& first, const Track::frame_t& frame);
  bool JudgeEnd(Track& track);
  void EndAt(std::int64_t end_ns);
  void Finish(Track& track);
  bool IsOver(Clock::time_point now);
  void ShowProgress(Clock::time_point now);
  int Conclude();
  int ConcludeEmpty(bool was_opened);
  bool Fail(const std::string& reason);

  const CaptureOptions& _options;
  const std::shared_ptr<FrameInbox> _inbox;
  Progress _progress;
  CaptureFile _file;
  std::vector<std::unique_ptr<Track>> _tracks;  // by lane
  std::unique_ptr<VideoPlan> _plan;             // null without video
  bool _is_triggered = false;

  std::int64_t _end_ns = INT64_MAX;                        // of the file, from its origin on
  Clock::time_point _deadline = Clock::time_point::max();  // the end must be reached by then
  bool _has_failed = false;
  bool _is_interrupted = false;
};

}  // namespace tessel::tool
