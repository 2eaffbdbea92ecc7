#include "CaptureRun.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "Console.h"

namespace tessel::tool {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kTick(100);  // longest wait for a frame
// A live stream that is this much behind its clock has stalled.
constexpr std::chrono::seconds kStallPatience(5);
// How much later than the other one a stream may begin and still decide where the file begins.
// Meanwhile frames keep their slots, which last for about half a second of sound.
constexpr milliseconds kStartPatience(300);

}  // namespace

CaptureRun::CaptureRun(const CaptureOptions& options, const Container& container,
                       std::vector<CaptureSource> sources, std::shared_ptr<FrameInbox> inbox)
    : _options(options),
      _inbox(std::move(inbox)),
      _progress(!options.quiet),
      _file(options, container) {
  for (CaptureSource& source : sources) {
    _tracks.push_back(std::make_unique<Track>(std::move(source), _tracks.size(), _inbox));
  }
  CaptureSource& first = _tracks.front()->stream.GetSource();
  if (!first.IsSound()) _plan = std::make_unique<VideoPlan>(first, options);
  _is_triggered = first.trigger != nullptr;
}

bool CaptureRun::Fail(const std::string& reason) {
  _progress.Clear();
  Say(reason);
  _has_failed = true;
  return false;
}

int CaptureRun::Run() {
  if (!Open() || !Start()) return kFailed;
  MoveFrames();
  for (const auto& track : _tracks) track->stream.Stop();
  return Conclude();
}

bool CaptureRun::Open() {
  std::string error;
  std::vector<MediaFormat> formats;
  if (_plan != nullptr) _plan->Prepare(0);
  for (const auto& track : _tracks) {
    if (!track->stream.Open(error)) return Fail(error);
    track->Begin(!_options.quiet);
    formats.push_back(track->Media());
  }
  return _file.Prepare(formats, error) || Fail(error);
}

bool CaptureRun::Start() {
  std::string error;
  const Clock::time_point start = Clock::now();
  for (const auto& track : _tracks) {
    if (!track->stream.Start(error)) return Fail(error);
  }
  if (_options.seconds) {
    // Without --seconds the user decides whether a source has stalled, and unpaced streams have a
    // clock of their own. Triggered frames end by the clock, not by their time stamps.
    const std::chrono::duration<double> span(*_options.seconds);
    _end_ns = std::llround(*_options.seconds * double{kSecondNs});
    const bool is_live = !_options.inputs.unpaced && !_is_triggered;
    if (is_live)
      _deadline = start + std::chrono::duration_cast<Clock::duration>(span) + kStallPatience;
  }
  const bool is_begun =
      !_is_triggered || _plan->BeginTriggers(start, [inbox = _inbox] { inbox->Wake(); });
  return is_begun || Fail("no thread to read standard input");
}

void CaptureRun::MoveFrames() {
  Gather();
  for (Clock::time_point now = Clock::now(); !IsOver(now); now = Clock::now()) {
    if (_plan != nullptr) _plan->Ask(now, _tracks.front()->Frames());
    FrameInbox::Item item;
    const auto news = _inbox->Wait(item, NextLook(), WantedLanes());
    if (!TakeNews(news, item)) return;
    if (_progress.IsDue(now)) ShowProgress(now);
  }
}

// The file begins with the frame that was captured first, which may arrive after others.
void CaptureRun::Gather() {
  if (_tracks.size() < 2) return;
  const unsigned untriggered = _is_triggered ? FrameInbox::kAllLanes << 1 : FrameInbox::kAllLanes;
  const milliseconds patience = _options.inputs.unpaced ? kStallPatience : kStartPatience;
  _inbox->WaitForEach(untriggered, patience, Clock::now() + kStallPatience);
}

CaptureRun::Clock::time_point CaptureRun::NextLook() const {
  const Clock::time_point now = Clock::now();
  return _plan != nullptr ? _plan->NextLook(now, now + kTick) : now + kTick;
}

// Unpaced streams wait while their frames are not taken, so the one that is behind catches up.
unsigned CaptureRun::WantedLanes() const {
  const auto begin = [](const auto& track) {
    return track->Frames() == 0 ? INT64_MIN : track->EndNs();
  };
  unsigned lanes = 0;
  std::int64_t least_ns = INT64_MAX;
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    if (_tracks[i]->is_done) continue;
    if (_options.inputs.unpaced && begin(_tracks[i]) < least_ns) lanes = 0;
    if (!_options.inputs.unpaced || begin(_tracks[i]) <= least_ns) lanes |= 1U << i;
    least_ns = std::min(least_ns, begin(_tracks[i]));
  }
  return lanes;
}

// False when there is nothing more to do.
bool CaptureRun::TakeNews(FrameInbox::News news, const FrameInbox::Item& item) {
  switch (news) {
    case FrameInbox::News::kFrame:
      return TakeFrame(*_tracks[item.lane], *item.frame);
    case FrameInbox::News::kInterrupt:
      _is_interrupted = true;
      return false;
    case FrameInbox::News::kMessage:
      _tracks[item.lane]->stream.OnMessage();
      return true;
    case FrameInbox::News::kOver:
      return JudgeEnd(*_tracks[item.lane]);
    case FrameInbox::News::kNothing:
      break;
  }
  return true;
}

// False when the capture cannot go on.
bool CaptureRun::TakeFrame(Track& track, Track::frame_t& frame) {
  track.CorrectStamp(frame);
  const CaptureSource& source = track.stream.GetSource();
  if (!source.IsSound()) {
    _plan->Answer(Clock::now());
    // A file begins with a picture that stands alone.
    if (track.Frames() == 0 && !frame.isKey) return true;
  }
  if (!_file.IsBegun() && !Begin(track, frame)) return false;
  const bool ends_by_time = source.IsSound() || !_is_triggered;
  if (ends_by_time && track.IsBehind(frame, _end_ns)) {
    Finish(track);
    return true;
  }
  std::string error;
  if (!_file.Write(track, frame, _end_ns, _tracks.size() > 1, error)) return Fail(error);
  const bool is_counted = &track == _tracks.front().get();
  if (is_counted && _plan != nullptr) _plan->Prepare(track.Frames());
  const bool has_all = is_counted && _options.frames &&
                       track.Frames() == static_cast<std::uint64_t>(*_options.frames);
  if (has_all) EndAt(track.EndNs());
  if (has_all || track.Reaches(_end_ns)) Finish(track);
  return true;
}

// Called with the first frame, so that a capture without frames leaves an older file alone.
bool CaptureRun::Begin(const Track& first, const Track::frame_t& frame) {
  std::int64_t origin_ns = first.CapturedNs(frame.timestamp);
  std::vector<MediaFormat> formats;
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    const auto stamp_ns = _inbox->NextStamp(i);
    const bool is_other = _tracks[i].get() != &first;
    if (is_other && stamp_ns) origin_ns = std::min(origin_ns, _tracks[i]->CapturedNs(*stamp_ns));
    formats.push_back(_tracks[i]->Media());
  }
  for (const auto& track : _tracks) track->SetOrigin(origin_ns);
  std::string error;
  return _file.Begin(formats, error) || Fail(error);
}

// A stream has ended by itself. False when the capture ends with it.
bool CaptureRun::JudgeEnd(Track& track) {
  if (track.is_done) return true;  // it was stopped
  const CaptureStream::End end = track.stream.JudgeEnd();
  if (end.is_failure) return Fail(end.reason);
  // A triggered frame that never arrives is an error.
  if (&track == _tracks.front().get() && _plan != nullptr && _plan->Missing() > 0) {
    return Fail("the input ended before all triggered frames had come");
  }
  EndAt(track.EndNs());
  Finish(track);
  return true;
}

// Lets every stream end there.
void CaptureRun::EndAt(std::int64_t end_ns) {
  _end_ns = std::min(_end_ns, end_ns);
  if (!_options.inputs.unpaced) _deadline = std::min(_deadline, Clock::now() + kStallPatience);
  for (const auto& track : _tracks) {
    if (track->Reaches(_end_ns)) Finish(*track);
  }
}

void CaptureRun::Finish(Track& track) {
  track.is_done = true;
  track.stream.Stop();
}

bool CaptureRun::IsOver(Clock::time_point now) {
  const auto is_done = [](const auto& track) { return track->is_done; };
  if (_is_triggered && !_tracks.front()->is_done) {
    if (_plan->HasStalled(now)) {
      Fail(Format("%llu triggered frames do not come; the source has stalled",
                  static_cast<unsigned long long>(_plan->Missing())));
      return true;
    }
    if (_plan->HasAllAskedFor()) {
      Finish(*_tracks.front());
      EndAt(_tracks.back()->EndNs());
    }
  }
  if (std::all_of(_tracks.begin(), _tracks.end(), is_done)) return true;
  if (now < _deadline) return false;
  Fail("no frames come any more; the source has stalled");
  return true;
}

void CaptureRun::ShowProgress(Clock::time_point now) {
  Progress::Values values;
  for (const auto& track : _tracks) {
    const CaptureSource& source = track->stream.GetSource();
    values.seconds = std::max(values.seconds, track->Seconds());
    values.dropped += track->stream.Dropped();
    if (source.IsSound()) {
      values.sound = track->RecentLevels(now);
      continue;
    }
    values.video = {.frames = track->Frames(),
                    .is_encoded = source.control != nullptr,
                    .bit_rate_bps = source.BitRate(),
                    .qp = source.control != nullptr ? source.control->GetCurrentQP() : 0};
  }
  _progress.Show(now, values);
}

int CaptureRun::ConcludeEmpty(bool was_opened) {
  if (was_opened) _file.Remove();
  if (!_has_failed) {
    Fail(_is_interrupted ? "interrupted before the first frame; nothing is written"
                         : "the input ended before the first frame; nothing is written");
  }
  return kFailed;
}

int CaptureRun::Conclude() {
  _progress.Clear();
  const bool was_opened = _file.IsBegun();
  std::string error;
  if (!_file.Finish(error)) Fail(error);
  const auto has_frames = [](const auto& track) { return track->Frames() > 0; };
  if (std::none_of(_tracks.begin(), _tracks.end(), has_frames)) return ConcludeEmpty(was_opened);
  for (const auto& track : _tracks) {
    if (!has_frames(track)) {
      Fail(_file.Name() + ": no frame of " + track->stream.GetSource().name + " has come");
    } else if (!_options.quiet && !_file.IsBroken()) {
      Say(_file.Name() + ": " + track->Summary());
    }
  }
  return _has_failed ? kFailed : kDone;
}

}  // namespace tessel::tool
