// One capture, from opening its sources to finishing the file.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CaptureOptions.h"
#include "CapturePlan.h"
#include "FrameInbox.h"
#include "FrameLog.h"
#include "MediaWriter.h"
#include "Progress.h"
#include "Track.h"

namespace tessel::tool {

// Streams end together: at the time asked for, or where the first of them has ended. Client's
// thread.
class CaptureRun {
 public:
  // REQUIRES: CheckFor(sources, options), Configure() and as many lanes as sources, video first.
  // Borrows options and container for its life.
  CaptureRun(const CaptureOptions& options, const Container& container, std::vector<Source> sources,
             std::shared_ptr<FrameInbox> inbox);
  CaptureRun(const CaptureRun&) = delete;
  CaptureRun& operator=(const CaptureRun&) = delete;

  int Run();  // the exit code

 private:
  using Clock = FrameInbox::Clock;

  bool Open();
  bool Start();
  void MoveFrames();
  void Gather();
  FrameInbox::Clock::time_point NextLook() const;
  unsigned WantedLanes() const;
  bool TakeNews(FrameInbox::News news, const FrameInbox::Item& item);
  bool TakeFrame(Track& track, Track::frame_t& frame);
  bool Begin(const Track& first, const Track::frame_t& frame);
  bool JudgeEnd(Track& track);
  void EndAt(std::int64_t end_ns);
  void Finish(Track& track);
  bool IsOver(Clock::time_point now);
  void ShowProgress(Clock::time_point now);
  bool FinishFile();
  int Conclude();
  int ConcludeEmpty(bool was_opened);
  bool Fail(const std::string& reason);
  std::string OutputName() const;

  const CaptureOptions& _options;
  const Container& _container;
  const std::shared_ptr<FrameInbox> _inbox;
  Progress _progress;
  FrameLog _frame_log;
  std::vector<std::unique_ptr<Track>> _tracks;  // by lane
  std::unique_ptr<VideoPlan> _plan;             // null without video
  std::unique_ptr<MediaWriter> _writer;         // there once the first frame is
  bool _is_triggered = false;

  std::int64_t _end_ns = INT64_MAX;                        // of the file, from its origin on
  Clock::time_point _deadline = Clock::time_point::max();  // by then the end is reached
  bool _has_failed = false;
  bool _is_broken = false;  // the file cannot be written on
  bool _is_interrupted = false;
};

}  // namespace tessel::tool
