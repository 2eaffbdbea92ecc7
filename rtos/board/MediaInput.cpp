#include "MediaInput.h"

#include <algorithm>
#include <utility>

#include <time.h>

extern "C" {
#include <libavutil/frame.h>
}

#include "Clock.h"
#include "Scaler.h"

namespace tessel::rtos {
namespace {

// Containers round time stamps to a millisecond at the coarsest; a picture that is due within this
// is due now.
constexpr std::int64_t kRoundingNs = 1'000'000;
constexpr std::int64_t kMostPassNs = 3'600'000'000'000'000;  // 1000 hours; more is a broken file
constexpr std::int64_t kFirstPictureNs = 500'000'000;
constexpr std::int64_t kLookNs = 5'000'000;  // between two looks for a camera's first picture

void Sleep(std::int64_t ns) {
  const timespec time = {.tv_sec = ns / kSecondNs, .tv_nsec = ns % kSecondNs};
  nanosleep(&time, nullptr);
}

}  // namespace

MediaInput::MediaInput(std::string name) : _reader(MediaReader::Kind::kVideo, std::move(name)) {}

std::unique_ptr<MediaInput> MediaInput::OpenFile(const std::string& path, bool loop,
                                                 std::string& error) {
  std::unique_ptr<MediaInput> input(new MediaInput(path));
  input->_loop = loop;
  if (input->_reader.OpenFile(path) && input->DecodeFirst()) return input;
  error = input->Error();
  return nullptr;
}

std::unique_ptr<MediaInput> MediaInput::OpenCamera(const std::string& device, int width, int height,
                                                   int frames_per_second, std::string& error) {
  std::unique_ptr<MediaInput> input(new MediaInput(device));
  input->_is_camera = true;
  const MediaReader::Option options[] = {
      {"video_size", std::to_string(width) + "x" + std::to_string(height)},
      {"framerate", std::to_string(frames_per_second)},
  };
  if (input->_reader.OpenDevice("video4linux2,v4l2", device, options) && input->WaitForFirst()) {
    return input;
  }
  error = input->Error();
  return nullptr;
}

void MediaInput::KeepLead() {
  for (std::int64_t* time_ns : {&_pass_start_ns, &_next_start_ns, &_decoded_end_ns}) {
    *time_ns += _reader.LeadNs();
  }
}

bool MediaInput::DecodeFirst() {
  if (DecodeNext() != MediaReader::Step::kFrame) return _reader.FailWith("no picture in its video");
  std::swap(_current, _next);
  const MediaReader::Step second = DecodeNext();
  _has_next = second == MediaReader::Step::kFrame;
  return second != MediaReader::Step::kFailed;
}

bool MediaInput::WaitForFirst() {
  for (std::int64_t waited_ns = 0; waited_ns < kFirstPictureNs; waited_ns += kLookNs) {
    const Step step = AdvanceCamera();
    if (step == Step::kNew) return true;
    if (step != Step::kSame) return false;
    Sleep(kLookNs);
  }
  return _reader.FailWith("no picture within 0.5 s");
}

MediaInput::Step MediaInput::AdvanceTo(std::int64_t time_ns) {
  return _is_camera ? AdvanceCamera() : AdvanceFile(time_ns);
}

MediaInput::Step MediaInput::AdvanceFile(std::int64_t time_ns) {
  Step step = Step::kSame;
  while (_has_next && _next_start_ns <= time_ns + kRoundingNs) {
    std::swap(_current, _next);
    step = Step::kNew;
    const MediaReader::Step decoded = DecodeNext();
    if (decoded == MediaReader::Step::kFailed) return Step::kFailed;
    _has_next = decoded == MediaReader::Step::kFrame;
  }
  const bool is_over = !_has_next && time_ns + kRoundingNs >= _decoded_end_ns;
  return is_over ? Step::kEnd : step;
}

MediaInput::Step MediaInput::AdvanceCamera() {
  // A camera that is faster than the schedule leaves several pictures; the newest one counts. It
  // cannot outrun this loop, but the bound is ours.
  constexpr int kMostPictures = 64;
  Step step = Step::kSame;
  for (int i = 0; i < kMostPictures; ++i) {
    const MediaReader::Step decoded = _reader.Decode(*_next);
    if (decoded == MediaReader::Step::kFailed) return Step::kFailed;
    if (decoded != MediaReader::Step::kFrame) break;
    std::swap(_current, _next);
    step = Step::kNew;
  }
  return step;
}

// Decodes the picture after the last one into _next, from the start of the file when it loops.
MediaReader::Step MediaInput::DecodeNext() {
  MediaReader::Step decoded = _reader.Decode(*_next);
  if (decoded == MediaReader::Step::kEnd && _loop) {
    _pass_start_ns = _decoded_end_ns;
    decoded = _reader.StartAnew(*_next);
  }
  if (decoded != MediaReader::Step::kFrame) return decoded;
  _next_start_ns = StartOf(*_next);
  _decoded_end_ns = _next_start_ns + _reader.DurationNs(*_next);
  return MediaReader::Step::kFrame;
}

// When the picture is due, counted from the start of the first pass. Never before the last one's
// time: streams without time stamps, or with broken ones, go on at their nominal rate.
std::int64_t MediaInput::StartOf(const AVFrame& frame) {
  const std::optional<std::int64_t> stamp_ns = _reader.StampNs(frame);
  if (!stamp_ns) return _decoded_end_ns;
  const std::int64_t in_pass_ns = *stamp_ns - _reader.FirstStampNs();
  const std::int64_t start_ns = _pass_start_ns + std::clamp(in_pass_ns, -kMostPassNs, kMostPassNs);
  return start_ns > _next_start_ns || _decoded_end_ns == 0 ? start_ns : _decoded_end_ns;
}

bool MediaInput::Render(Scaler& scaler, const Picture& into) {
  return scaler.Scale(*_current, into) || _reader.FailWith("cannot convert its pictures");
}

}  // namespace tessel::rtos
