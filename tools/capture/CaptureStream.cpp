#include "CaptureStream.h"

#include <algorithm>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include "ErrorLog.h"

namespace tessel::tool {
namespace {

using std::chrono::milliseconds;
using Clock = FrameInbox::Clock;
using Frame = FrameInbox::Frame;

// The message that a stream has ended may arrive this much later than its last frame.
constexpr milliseconds kMessagePatience(2000);

constexpr char kInputEnd[] = "end of input";
constexpr char kLoss[] = "the real-time side is gone";
constexpr char kFailureHead[] = "element \"";

// Whether the message ends the stream. A pushed stream has no other sign of its end.
bool IsFinal(const std::string& message) {
  return message == kInputEnd || message == kLoss || message.starts_with(kFailureHead);
}

std::set<std::string> Sessions() {
  std::set<std::string> names;
  for (const auto& stream : quill::host::Streams()) names.insert(stream.session);
  return names;
}

std::optional<quill::host::StreamCounters> CountersOf(const std::string& session) {
  for (auto& stream : quill::host::Streams()) {
    if (!session.empty() && stream.session == session) return std::move(stream);
  }
  return std::nullopt;
}

}  // namespace

CaptureStream::CaptureStream(CaptureSource source, std::size_t lane,
                             std::shared_ptr<FrameInbox> inbox)
    : _source(std::move(source)), _lane(lane), _inbox(std::move(inbox)) {
  _is_pull = _source.stream->IsSupportedPullFrame();
}

bool CaptureStream::Open(std::string& error) {
  _source.stream->RegisterMessageCallback([inbox = _inbox, lane = _lane](const char* text) {
    inbox->PutMessage(lane, text);
    return true;
  });
  if (!_is_pull) {
    _source.stream->RegisterOutputCallback([inbox = _inbox, lane = _lane](Frame& frame) {
      inbox->Put(lane, std::move(frame));
      return true;
    });
  }
  const std::set<std::string> before = Sessions();
  ErrorLog::Forget();
  if (!_source.stream->Open()) {
    error = "cannot open " + _source.name + ": " + ErrorLog::LastReason();
    return false;
  }
  for (const std::string& name : Sessions()) {
    if (!before.contains(name)) _session = name;
  }
  return true;
}

bool CaptureStream::Start(std::string& error) {
  ErrorLog::Forget();
  if (!_source.stream->Start()) {
    error = "cannot start the stream: " + ErrorLog::LastReason();
    return false;
  }
  _is_playing = true;
  return !_is_pull || StartReader(error);
}

bool CaptureStream::StartReader(std::string& error) {
  try {
    _reader = std::thread([source = _source.stream.get(), inbox = _inbox, lane = _lane] {
      Frame frame;
      while (source->PullFrame(frame, true) && inbox->PutInTurn(lane, std::move(frame))) {
      }
      inbox->Close(lane);
    });
  } catch (const std::system_error& failure) {
    error = std::string("no thread to pull frames: ") + failure.what();
    return false;
  }
  return true;
}

void CaptureStream::Stop() {
  if (!_is_playing) return;
  _is_playing = false;
  if (const auto counters = CountersOf(_session)) _dropped = counters->dropped;
  if (_is_pull) _inbox->Close(_lane);  // the reader may be waiting for room in the lane
  _source.stream->Stop();
  if (_reader.joinable()) _reader.join();
  _inbox->Close(_lane);
}

bool CaptureStream::IsDrained() const {
  const auto counters = CountersOf(_session);
  return !counters || counters->delivered + counters->refused >= counters->published;
}

void CaptureStream::OnMessage() {
  if (_is_pull || !IsFinal(_inbox->WaitForMessage(_lane, Clock::now()))) return;
  // The message may overtake the last frames, and only the counters tell when those are in.
  const Clock::time_point deadline = Clock::now() + kMessagePatience;
  while (!IsDrained() && Clock::now() < deadline) std::this_thread::sleep_for(milliseconds(5));
  Stop();  // the callback does not run after this
}

CaptureStream::End CaptureStream::JudgeEnd() {
  const std::string message = _inbox->WaitForMessage(_lane, Clock::now() + kMessagePatience);
  if (message == kInputEnd) return {false, message};
  if (!message.empty()) return {true, message};
  const bool is_lost = quill::host::RtosProcessId() == 0;
  return {true, is_lost ? kLoss : "the stream has ended without a reason"};
}

std::uint64_t CaptureStream::Dropped() const {
  const auto counters = _is_playing ? CountersOf(_session) : std::nullopt;
  return counters ? counters->dropped : _dropped;
}

}  // namespace tessel::tool
