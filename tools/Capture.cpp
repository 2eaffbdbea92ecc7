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
#include "tessel/IH264Source.h"

#include "Classes.h"
#include "Console.h"
#include "ErrorLog.h"
#include "FrameInbox.h"
#include "FrameLog.h"
#include "Interrupts.h"
#include "MediaWriter.h"
#include "Progress.h"

namespace tessel::tool {
namespace {

using api::streaming::IH264Source;
using api::streaming::common::H264MediaInfo;
using std::chrono::milliseconds;
using Clock = FrameInbox::Clock;
using Frame = FrameInbox::Frame;

constexpr std::int64_t kSecondNs = 1'000'000'000;
constexpr milliseconds kTick(100);  // how often to look up when no frame comes
// The message that a stream has ended takes another way than the frames, and comes a little later.
constexpr milliseconds kMessagePatience(2000);
// A live stream that falls so much behind its clock has stalled.
constexpr std::chrono::seconds kStallPatience(5);
// The bounds that a fresh source has, relative to its bit rate.
constexpr int kMaximumRatio = 2;
constexpr int kMinimumRatio = 20;

constexpr char kInputEnd[] = "end of input";
constexpr char kLoss[] = "the real-time side is gone";
constexpr char kFailureHead[] = "element \"";

// In push mode nothing but its text tells a message that ends the stream from another one.
bool IsFinal(const std::string& message) {
  return message == kInputEnd || message == kLoss || message.starts_with(kFailureHead);
}

const ControlChange* FirstOf(const CaptureOptions& options, const char* name) {
  for (const ControlChange& change : options.changes) {
    if (change.row == FindControl(name)) return &change;
  }
  return nullptr;
}

std::string OutputName(const CaptureOptions& options) {
  return options.output == kStandardOutput ? "standard output" : options.output;
}

// Whether two names lead to one file, or both to standard output.
bool IsSameFile(const std::string& a, const std::string& b) {
  std::error_code failure;
  if (std::filesystem::is_regular_file(a, failure)) {
    return std::filesystem::equivalent(a, b, failure);
  }
  return !a.empty() && a == b;
}

bool IsOrdered(const CaptureOptions& options, const char* low, const char* high,
               std::string& error) {
  const ControlChange* least = FirstOf(options, low);
  const ControlChange* most = FirstOf(options, high);
  const bool are_from_start =
      least != nullptr && most != nullptr && least->frame == 0 && most->frame == 0;
  if (!are_from_start || least->value <= most->value) return true;
  error = Format("--%s %d is above --%s %d", low, least->value, high, most->value);
  return false;
}

// One capture, from opening the source to finishing the file. Client's thread.
class CaptureRun {
 public:
  CaptureRun(const CaptureOptions& options, const Container& container,
             std::shared_ptr<FrameInbox> inbox)
      : _options(options),
        _container(container),
        _inbox(std::move(inbox)),
        _progress(!options.quiet) {}
  ~CaptureRun() { EndStream(); }
  CaptureRun(const CaptureRun&) = delete;
  CaptureRun& operator=(const CaptureRun&) = delete;

  int Run(const std::string& class_name);

 private:
  bool OpenSource(const std::string& class_name);
  void Configure();
  void Apply(const ControlChange& change);
  bool StartSource();
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
  std::int64_t FrameNs() const { return kSecondNs / std::max(1, _source->GetCurrentFrameRate()); }
  double Seconds() const {
    return static_cast<double>(_last_time_ns + _last_duration_ns) / double{kSecondNs};
  }

  const CaptureOptions& _options;
  const Container& _container;
  const std::shared_ptr<FrameInbox> _inbox;
  Progress _progress;
  FrameLog _frame_log;

  quill::host::Handle<IH264Source> _source;
  bool _is_pull = false;
  bool _is_playing = false;
  std::thread _reader;  // pull mode: takes frames off the stream
  Clock::time_point _start;
  VideoFormat _format;
  std::vector<ControlChange> _changes;  // by frame, those still to come from _next_change on
  std::size_t _next_change = 0;
  std::unique_ptr<MediaWriter> _writer;  // there once the first frame is

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

int CaptureRun::Run(const std::string& class_name) {
  if (!OpenSource(class_name) || !StartSource()) return kFailed;
  MoveFrames();
  EndStream();
  return Conclude();
}

bool CaptureRun::OpenSource(const std::string& class_name) {
  _source = quill::host::Create<IH264Source>(class_name.c_str());
  if (!_source) return Fail("cannot capture " + class_name + ": it delivers no video");
  _is_pull = _source->IsSupportedPullFrame();
  Configure();
  _source->RegisterMessageCallback([inbox = _inbox](const char* text) {
    inbox->Tell(text);
    return true;
  });
  if (!_is_pull) {
    _source->RegisterOutputCallback([inbox = _inbox](Frame& frame) {
      inbox->Put(std::move(frame));
      return true;
    });
  }
  ErrorLog::Forget();
  if (!_source->Open()) {
    return Fail("cannot open " + class_name + ": " + ErrorLog::LastReason());
  }
  const H264MediaInfo info = _source->GetH264MediaInfo();
  _format = {.width = info.width,
             .height = info.height,
             .frames_per_second = _source->GetCurrentFrameRate(),
             .header = {}};
  const std::pair<const void*, int> units[] = {{info.sps, info.spsSize}, {info.pps, info.ppsSize}};
  for (const auto& [unit, size_bytes] : units) {
    constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};
    const auto* bytes = static_cast<const std::uint8_t*>(unit);
    _format.header.insert(_format.header.end(), std::begin(kStartCode), std::end(kStartCode));
    _format.header.insert(_format.header.end(), bytes, bytes + size_bytes);
  }
  std::string error;
  if (_frame_log.Open(_options.frame_log, error)) return true;
  return Fail("cannot write " + _options.frame_log + ": " + error);
}

void CaptureRun::Configure() {
  if (_options.width) _source->SetWidth(*_options.width);
  if (_options.height) _source->SetHeight(*_options.height);
  if (_options.gop) _source->SetGop(*_options.gop);
  if (!_options.goptype.empty()) _source->SetGopType(_options.goptype.c_str());
  if (FirstOf(_options, "qp") != nullptr) {
    // Goes on: a source that knows no such mode still takes the value.
    _source->SelectBitRateControl(IH264Source::kFixedQp);
  }
  _changes = _options.changes;
  std::stable_sort(_changes.begin(), _changes.end(),
                   [](const auto& a, const auto& b) { return a.frame < b.frame; });
  PrepareFrame(0);
}

// A bit rate takes its bounds along, unless the user has said what they are.
void CaptureRun::Apply(const ControlChange& change) {
  change.row->set(*_source, change.value);
  if (change.row != FindControl("bitrate")) return;
  if (FirstOf(_options, "bitrate-max") == nullptr) {
    _source->SetBitRateMaximum(kMaximumRatio * change.value);
  }
  if (FirstOf(_options, "bitrate-min") == nullptr) {
    _source->SetBitRateMinimum(change.value / kMinimumRatio);
  }
}

bool CaptureRun::StartSource() {
  _start = Clock::now();
  if (!_source->Start()) return Fail("cannot start the stream: " + ErrorLog::LastReason());
  _is_playing = true;
  if (!_is_pull) return true;
  try {
    _reader = std::thread([source = _source.get(), inbox = _inbox] {
      Frame frame;
      while (source->PullFrame(frame, true)) inbox->Put(std::move(frame));
      inbox->Close();
    });
  } catch (const std::system_error& failure) {
    return Fail(std::string("no thread to pull frames: ") + failure.what());
  }
  return true;
}

void CaptureRun::MoveFrames() {
  for (;;) {
    Frame frame;
    const auto news = _inbox->Wait(frame, Clock::now() + kTick);
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
    if (HasStalled(now)) {
      Fail("no frames come any more; the source has stalled");
      return;
    }
    if (_progress.IsDue(now)) ShowProgress(now);
  }
}

bool CaptureRun::IsEnough(const Frame& next) const {
  if (!_options.seconds || _frames == 0) return false;
  const auto time_ns = static_cast<double>(next->timestamp - _first_timestamp_ns);
  return time_ns >= *_options.seconds * double{kSecondNs};
}

// Without this a stalled source would keep a capture of ten seconds for ever. Without an end in
// sight that is the user's to judge, and unpaced streams have a clock of their own.
bool CaptureRun::HasStalled(Clock::time_point now) const {
  if (!_options.seconds || _options.unpaced) return false;
  return now - _start > std::chrono::duration<double>(*_options.seconds) + kStallPatience;
}

// False when the file cannot be written on.
bool CaptureRun::TakeFrame(const Frame& frame) {
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
  if (!_frame_log.Write(*frame, _source->GetCurrentBitRate(), error)) {
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
  if (is_regular || std::any_of(key_at.begin(), key_at.end(), is_now)) _source->ForceKeyFrame();
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
  if (message == kInputEnd) return;
  const bool is_lost = quill::host::FarSideProcess() == 0;
  Fail(!message.empty() ? message : is_lost ? kLoss : "the stream has ended without a reason");
}

void CaptureRun::ShowProgress(Clock::time_point now) {
  std::uint64_t dropped = 0;
  for (const auto& stream : quill::host::Streams()) dropped += stream.dropped;
  _progress.Show(now, {.frames = _frames,
                       .seconds = Seconds(),
                       .bit_rate_bps = _source->GetCurrentBitRate(),
                       .qp = _source->GetCurrentQP(),
                       .dropped = dropped});
}

// No frame comes in after this. May be called again.
void CaptureRun::EndStream() {
  if (!_is_playing) return;
  _is_playing = false;
  _dropped = 0;
  for (const auto& stream : quill::host::Streams()) _dropped += stream.dropped;
  _source->Stop();
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

bool Check(const CaptureOptions& options, std::string& error) {
  std::string reason;
  if (FindContainer(options.output, reason) == nullptr) {
    error = "--output: " + reason;
    return false;
  }
  if (IsSameFile(options.output, options.sensor)) {
    error = "--output: " + options.output + " is what --sensor reads";
    return false;
  }
  if (IsSameFile(options.output, options.frame_log)) {
    error = "--output and --frame-log name the same file";
    return false;
  }
  // What cannot be written as text would not arrive.
  if (!quill::base::AttrSet().Add("sensor", options.sensor)) {
    error = "--sensor: " + Quoted(options.sensor) + " has unbalanced braces; rename the file";
    return false;
  }
  return IsOrdered(options, "bitrate-min", "bitrate-max", error) &&
         IsOrdered(options, "qp-min", "qp-max", error);
}

int Capture(const CaptureOptions& options) {
  std::string error;
  const Container* container = FindContainer(options.output, error);
  const IClass* record = container == nullptr ? nullptr : FindCreatable(options.name, error);
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
  CaptureRun run(options, *container, std::move(inbox));
  return run.Run(record->Name());
}

}  // namespace tessel::tool
