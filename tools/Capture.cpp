#include "Capture.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include <signal.h>

#include "quill/Host.h"

#include "Classes.h"
#include "Console.h"
#include "ErrorLog.h"
#include "FrameInbox.h"
#include "FrameLog.h"
#include "Interrupts.h"
#include "MediaWriter.h"
#include "Progress.h"
#include "Triggers.h"

namespace tessel::tool {
namespace {

using api::streaming::common::IBitRateControl;
using std::chrono::milliseconds;
using Clock = FrameInbox::Clock;
using Frame = FrameInbox::Frame;

constexpr std::int64_t kSecondNs = 1'000'000'000;
constexpr milliseconds kTick(100);  // how often to look up when no frame comes
// The message that a stream has ended takes another way than the frames, and comes a little later.
constexpr milliseconds kMessagePatience(2000);
// A live stream that falls so much behind its clock has stalled.
constexpr std::chrono::seconds kStallPatience(5);

constexpr char kInputEnd[] = "end of input";
constexpr char kLoss[] = "the real-time side is gone";
constexpr char kFailureHead[] = "element \"";

// In push mode nothing but its text tells a message that ends the stream from another one.
bool IsFinal(const std::string& message) {
  return message == kInputEnd || message == kLoss || message.starts_with(kFailureHead);
}

std::string OutputName(const CaptureOptions& options) {
  return options.output == kStandardOutput ? "standard output" : options.output;
}

// One capture, from opening the source to finishing the file. Client's thread.
class CaptureRun {
 public:
  // REQUIRES: CheckFor(source, options).
  CaptureRun(const CaptureOptions& options, const Container& container, VideoSource source,
             std::shared_ptr<FrameInbox> inbox)
      : _options(options),
        _container(container),
        _inbox(std::move(inbox)),
        _progress(!options.quiet),
        _source(std::move(source)) {}
  ~CaptureRun() { EndStream(); }
  CaptureRun(const CaptureRun&) = delete;
  CaptureRun& operator=(const CaptureRun&) = delete;

  int Run();

 private:
  bool OpenSource();
  void Configure();
  void Apply(const ControlChange& change);
  bool StartSource();
  bool StartReader();
  bool StartTriggers();
  void AskForFrames(Clock::time_point now);
  bool HasAllAskedFor(Clock::time_point now);
  Clock::time_point NextLook() const;
  void MoveFrames();
  bool TakeFrame(const Frame& frame);
  bool OpenWriter();
  void PrepareFrame(std::uint64_t number);
  bool IsEnough(const Frame& next) const;
  bool HasStalled(Clock::time_point now) const;
  void DrainPushed();
  void JudgeEnd();
  void ShowProgress(Clock::time_point now);
  void EndStream();
  void FinishFile();
  int Conclude();
  bool Fail(const std::string& reason);
  std::int64_t FrameNs() const { return kSecondNs / std::max(1, _source.FramesPerSecond()); }
  double Seconds() const {
    return static_cast<double>(_last_time_ns + _last_duration_ns) / double{kSecondNs};
  }

  const CaptureOptions& _options;
  const Container& _container;
  const std::shared_ptr<FrameInbox> _inbox;
  Progress _progress;
  FrameLog _frame_log;

  VideoSource _source;
  bool _is_pull = false;
  bool _is_playing = false;
  std::thread _reader;  // pull mode: takes frames off the stream
  Clock::time_point _start;
  VideoFormat _format;
  std::vector<ControlChange> _changes;  // by frame, those still to come from _next_change on
  std::size_t _next_change = 0;
  std::unique_ptr<MediaWriter> _writer;  // there once the first frame is

  // Where frames are triggered.
  Triggers _triggers;
  bool _asks_no_more = false;
  std::uint64_t _asked = 0;      // frames
  std::uint64_t _answered = 0;   // of these
  Clock::time_point _last_news;  // an answer, or the end of asking

  bool _has_failed = false;
  bool _is_broken = false;  // the file cannot be written on
  bool _is_interrupted = false;
  std::uint64_t _frames = 0;
  std::uint64_t _key_frames = 0;
  std::uint64_t _bytes = 0;
  std::uint64_t _dropped = 0;
  std::int64_t _first_timestamp_ns = 0;
  std::int64_t _last_time_ns = 0;      // from the first frame on
  std::int64_t _last_duration_ns = 0;  // nominal
};

bool CaptureRun::Fail(const std::string& reason) {
  _progress.Clear();
  Say(reason);
  _has_failed = true;
  return false;
}

int CaptureRun::Run() {
  if (!OpenSource() || !StartSource()) return kFailed;
  MoveFrames();
  EndStream();
  return Conclude();
}

bool CaptureRun::OpenSource() {
  _is_pull = _source.stream->IsSupportedPullFrame();
  Configure();
  _source.stream->RegisterMessageCallback([inbox = _inbox](const char* text) {
    inbox->Tell(text);
    return true;
  });
  if (!_is_pull) {
    _source.stream->RegisterOutputCallback([inbox = _inbox](Frame& frame) {
      inbox->Put(std::move(frame));
      return true;
    });
  }
  ErrorLog::Forget();
  if (!_source.stream->Open()) {
    return Fail("cannot open " + _options.name + ": " + ErrorLog::LastReason());
  }
  _format = _source.Format();
  std::string error;
  if (_source.raw != nullptr && !TakesFormat(_container, _format.pixel_format, error)) {
    return Fail("cannot write " + OutputName(_options) + ": " + error);
  }
  if (_frame_log.Open(_options.frame_log, error)) return true;
  return Fail("cannot write " + _options.frame_log + ": " + error);
}

void CaptureRun::Configure() {
  if (_options.width) _source.SetWidth(*_options.width);
  if (_options.height) _source.SetHeight(*_options.height);
  if (!_options.format.empty()) _source.raw->SetFormat(_options.format.c_str());
  if (_options.gop) _source.h264->SetGop(*_options.gop);
  if (!_options.goptype.empty()) _source.h264->SetGopType(_options.goptype.c_str());
  // Goes on: a source that knows no such mode still takes the values.
  if (_options.FirstOf("qp") != nullptr) {
    _source.control->SelectBitRateControl(IBitRateControl::kFixedQp);
  } else if (_source.kind->kind == kH264Variable) {
    _source.control->SelectBitRateControl(IBitRateControl::kVariable);
  }
  _changes = _options.changes;
  std::stable_sort(_changes.begin(), _changes.end(),
                   [](const auto& a, const auto& b) { return a.frame < b.frame; });
  PrepareFrame(0);
}

// A bit rate takes its bounds along, unless the user has said what they are.
void CaptureRun::Apply(const ControlChange& change) {
  change.row->set(_source, change.value);
  if (change.row != FindControl("bitrate")) return;
  if (_options.FirstOf("bitrate-max") == nullptr) {
    _source.control->SetBitRateMaximum(kMaximumRatio * change.value);
  }
  if (_options.FirstOf("bitrate-min") == nullptr) {
    _source.control->SetBitRateMinimum(change.value / kMinimumRatio);
  }
}

bool CaptureRun::StartSource() {
  _start = Clock::now();
  if (!_source.stream->Start()) return Fail("cannot start the stream: " + ErrorLog::LastReason());
  _is_playing = true;
  return (!_is_pull || StartReader()) && (!_options.Triggers() || StartTriggers());
}

bool CaptureRun::StartReader() {
  try {
    _reader = std::thread([source = _source.stream.get(), inbox = _inbox] {
      Frame frame;
      while (source->PullFrame(frame, true) && inbox->PutInTurn(std::move(frame))) {
      }
      inbox->Close();
    });
  } catch (const std::system_error& failure) {
    return Fail(std::string("no thread to pull frames: ") + failure.what());
  }
  return true;
}

bool CaptureRun::StartTriggers() {
  if (!_options.trigger_on_stdin) {
    _triggers.BeginEvery(milliseconds(_options.trigger_every), _start);
    return true;
  }
  return _triggers.BeginLines([inbox = _inbox] { inbox->Wake(); }) ||
         Fail("no thread to read standard input");
}

// Triggers what is due, but no more than the frames that are wanted.
void CaptureRun::AskForFrames(Clock::time_point now) {
  if (_asks_no_more) return;
  const std::chrono::duration<double> span(_options.seconds.value_or(0));
  const auto end = !_options.seconds ? Clock::time_point::max()
                                     : _start + std::chrono::duration_cast<Clock::duration>(span);
  const bool is_over = now >= end || _triggers.HasEnded();
  const std::uint64_t due = _triggers.Due(std::min(now, end - Clock::duration(1)));
  const auto is_wanted = [this] {
    return !_options.frames ||
           _frames + (_asked - _answered) < static_cast<std::uint64_t>(*_options.frames);
  };
  for (; _asked < due && is_wanted(); ++_asked) _source.trigger->Trigger();
  if (!is_over) return;
  _asks_no_more = true;
  _last_news = now;
}

// Whether the capture is over as all triggered frames are there, or as they do not come.
bool CaptureRun::HasAllAskedFor(Clock::time_point now) {
  if (!_asks_no_more) return false;
  if (_answered >= _asked) return true;
  if (now - _last_news < kStallPatience) return false;
  Fail(Format("%llu triggered frames do not come; the source has stalled",
              static_cast<unsigned long long>(_asked - _answered)));
  return true;
}

FrameInbox::Clock::time_point CaptureRun::NextLook() const {
  const Clock::time_point now = Clock::now();
  return std::min(now + kTick, _triggers.NextAfter(now).value_or(now + kTick));
}

void CaptureRun::MoveFrames() {
  for (;;) {
    if (_source.trigger != nullptr) AskForFrames(Clock::now());
    Frame frame;
    const auto news = _inbox->Wait(frame, NextLook());
    const Clock::time_point now = Clock::now();
    switch (news) {
      case FrameInbox::News::kFrame:
        if (IsEnough(frame) || !TakeFrame(frame)) return;
        break;
      case FrameInbox::News::kInterrupt:
        _is_interrupted = true;
        return;
      case FrameInbox::News::kMessage:
        if (!_is_pull && IsFinal(_inbox->WaitForMessage(now))) DrainPushed();
        break;
      case FrameInbox::News::kOver:
        JudgeEnd();
        return;
      case FrameInbox::News::kNothing:
        break;
    }
    if (_options.frames && _frames == static_cast<std::uint64_t>(*_options.frames)) return;
    if (HasAllAskedFor(now)) return;
    if (HasStalled(now)) {
      Fail("no frames come any more; the source has stalled");
      return;
    }
    if (_progress.IsDue(now)) ShowProgress(now);
  }
}

bool CaptureRun::IsEnough(const Frame& next) const {
  if (!_options.seconds || _frames == 0 || _source.trigger != nullptr) return false;
  // Half a frame of jitter does not make one more.
  const std::int64_t half_frame_ns = FrameNs() / 2;
  const auto time_ns = static_cast<double>(next->timestamp - _first_timestamp_ns + half_frame_ns);
  return time_ns >= *_options.seconds * double{kSecondNs};
}

// Without this a stalled source would keep a capture of ten seconds for ever. Without an end in
// sight that is the user's to judge, and unpaced streams have a clock of their own.
bool CaptureRun::HasStalled(Clock::time_point now) const {
  if (!_options.seconds || _options.unpaced || _source.trigger != nullptr) return false;
  return now - _start > std::chrono::duration<double>(*_options.seconds) + kStallPatience;
}

// False when the file cannot be written on.
bool CaptureRun::TakeFrame(const Frame& frame) {
  ++_answered;
  _last_news = Clock::now();
  if (_writer == nullptr) {
    if (!frame->isKey) return true;  // a file begins with a picture that stands alone
    if (!OpenWriter()) return false;
    _first_timestamp_ns = frame->timestamp;
  }
  const std::int64_t time_ns = std::max(_last_time_ns, frame->timestamp - _first_timestamp_ns);
  std::string error;
  if (!_writer->Write(*frame, time_ns, FrameNs(), error)) {
    _is_broken = true;
    return Fail("cannot write " + OutputName(_options) + ": " + error);
  }
  if (!_frame_log.Write(*frame, _source.BitRate(), error)) {
    return Fail("cannot write " + _options.frame_log + ": " + error);
  }
  _last_time_ns = time_ns;
  _last_duration_ns = FrameNs();
  _bytes += frame->size;
  if (frame->isKey) ++_key_frames;
  PrepareFrame(++_frames);
  return true;
}

// Only now, so that a capture that does not come about leaves an older file alone.
bool CaptureRun::OpenWriter() {
  std::string error;
  _writer = MediaWriter::Open(_container, _options.output, _format, error);
  return _writer != nullptr || Fail("cannot write " + OutputName(_options) + ": " + error);
}

// Asks for what the frame `number` is to have. A live source captures it after the one before has
// come; one that is unpaced is ahead by then, and answers a few frames later.
void CaptureRun::PrepareFrame(std::uint64_t number) {
  while (_next_change < _changes.size() &&
         static_cast<std::uint64_t>(_changes[_next_change].frame) <= number) {
    Apply(_changes[_next_change++]);
  }
  const auto is_now = [number](int frame) { return static_cast<std::uint64_t>(frame) == number; };
  const bool is_regular = _options.key_every > 0 && number > 0 &&
                          number % static_cast<std::uint64_t>(_options.key_every) == 0;
  const auto& key_at = _options.key_at;
  if (is_regular || std::any_of(key_at.begin(), key_at.end(), is_now)) {
    _source.h264->ForceKeyFrame();
  }
}

// A message that ends a pushed stream overtakes its last frames.
void CaptureRun::DrainPushed() {
  const auto is_drained = [] {
    for (const auto& stream : quill::host::Streams()) {
      if (stream.delivered + stream.refused < stream.made) return false;
    }
    return true;
  };
  // Nothing announces the last frame, so it is looked for.
  const Clock::time_point deadline = Clock::now() + kMessagePatience;
  while (!is_drained() && Clock::now() < deadline) std::this_thread::sleep_for(milliseconds(5));
  EndStream();  // the callback has run for the last time when this returns
}

// The stream has ended by itself: why?
void CaptureRun::JudgeEnd() {
  const std::string message = _inbox->WaitForMessage(Clock::now() + kMessagePatience);
  if (message == kInputEnd) {
    // What is asked for in vain is missed.
    const bool is_short = _source.trigger != nullptr && _answered < _asked;
    if (is_short) Fail("the input ended before all triggered frames had come");
    return;
  }
  const bool is_lost = quill::host::FarSideProcess() == 0;
  Fail(!message.empty() ? message : is_lost ? kLoss : "the stream has ended without a reason");
}

void CaptureRun::ShowProgress(Clock::time_point now) {
  std::uint64_t dropped = 0;
  for (const auto& stream : quill::host::Streams()) dropped += stream.dropped;
  _progress.Show(now, {.frames = _frames,
                       .seconds = Seconds(),
                       .is_encoded = _source.control != nullptr,
                       .bit_rate_bps = _source.BitRate(),
                       .qp = _source.control != nullptr ? _source.control->GetCurrentQP() : 0,
                       .dropped = dropped});
}

// No frame comes in after this. May be called again.
void CaptureRun::EndStream() {
  if (!_is_playing) return;
  _is_playing = false;
  _dropped = 0;
  for (const auto& stream : quill::host::Streams()) _dropped += stream.dropped;
  if (_is_pull) _inbox->Close();  // the reader may be waiting for somebody to take frames out
  _source.stream->Stop();
  if (_reader.joinable()) _reader.join();
  _inbox->Close();
}

void CaptureRun::FinishFile() {
  std::string error;
  if (_writer == nullptr) return;
  const bool is_finished = _writer->Finish(error);
  _writer.reset();
  if (is_finished || _is_broken) return;  // what broke it has been told
  _is_broken = true;
  Fail("cannot finish " + OutputName(_options) + ": " + error);
}

int CaptureRun::Conclude() {
  _progress.Clear();
  const bool was_opened = _writer != nullptr;
  FinishFile();
  if (_frames == 0) {
    // Never a device or a link to one.
    std::error_code failure;
    const bool is_file =
        std::filesystem::is_regular_file(std::filesystem::symlink_status(_options.output, failure));
    if (was_opened && is_file) std::filesystem::remove(_options.output, failure);
    if (!_has_failed) {
      Fail(_is_interrupted ? "interrupted before the first frame; nothing is written"
                           : "the input ended before the first frame; nothing is written");
    }
    return kFailed;
  }
  if (!_options.quiet && !_is_broken) {
    const double kilobits = static_cast<double>(_bytes) * 8 / 1000;
    Say(Format("%s: %llu frames, %.2f s, %.0f kbit/s, %llu key frames, %llu dropped",
               OutputName(_options).c_str(), static_cast<unsigned long long>(_frames), Seconds(),
               kilobits / Seconds(), static_cast<unsigned long long>(_key_frames),
               static_cast<unsigned long long>(_dropped)));
  }
  return _has_failed ? kFailed : kDone;
}

}  // namespace

int Capture(const CaptureOptions& options) {
  std::string error;
  const IClass* record = FindCreatable(options.name, error);
  if (record == nullptr) {
    Say(error);
    return kFailed;
  }
  signal(SIGPIPE, SIG_IGN);  // a reader that goes away is a write error like any other
  auto inbox = std::make_shared<FrameInbox>();
  if (!WatchInterrupts([inbox] { inbox->Interrupt(); })) {
    Say("no thread to wait for Ctrl-C");
    return kFailed;
  }
  quill::host::Options board = quill::host::GetOptions();
  board.sensor = options.sensor;
  board.loop = !options.once;
  board.paced = !options.unpaced;
  quill::host::SetOptions(board);
  VideoSource source;
  if (!source.Create(record->Name(), error)) {
    Say(error);
    return kFailed;
  }
  if (!CheckFor(source, options, error)) {
    Say(error);
    return kWrongUsage;
  }
  if (source.kind->kind == kSynthetic && !options.quiet) {
    Say("the frames of " + options.name + " carry no picture; what their bytes are is undefined");
  }
  const Container& container = *FindContainer(options.output, source.kind->kind);
  CaptureRun run(options, container, std::move(source), std::move(inbox));
  return run.Run();
}

}  // namespace tessel::tool
