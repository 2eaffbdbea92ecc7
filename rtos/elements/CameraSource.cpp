#include "CameraSource.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "Clock.h"
#include "KnownParams.h"

namespace tessel::rtos {
namespace {

constexpr int kLeastSide = 16;
constexpr int kMostWidth = 7680;
constexpr int kMostHeight = 4320;
constexpr int kMostRate = 1000;  // frames/s
constexpr std::size_t kAlignment = 64;
// A capture that is later than both was held up from outside: what was missed is not caught up.
constexpr int kMostPeriodsLate = 3;
constexpr std::int64_t kTolerableLatenessNs = 50'000'000;
// The scaler writes whole vectors of 32 chroma samples; narrower lines would let it run into the
// next.
constexpr int kScalerWidth = 64;

std::size_t PackedBytes(int width, int height) {
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3 / 2;
}

// A picture laid out in `memory` without gaps.
Picture PackedPicture(int width, int height, std::uint8_t* memory) {
  const std::ptrdiff_t luma_bytes = std::ptrdiff_t{width} * height;
  return {.width = width,
          .height = height,
          .planes = {memory, memory + luma_bytes, memory + luma_bytes + luma_bytes / 4},
          .strides = {width, width / 2, width / 2}};
}

void CopyPicture(const Picture& from, const Picture& to) {
  for (int plane = 0; plane < 3; ++plane) {
    const int shift = plane == 0 ? 0 : 1;
    for (int y = 0; y < to.height >> shift; ++y) {
      std::memcpy(to.planes[plane] + std::ptrdiff_t{y} * to.strides[plane],
                  from.planes[plane] + std::ptrdiff_t{y} * from.strides[plane],
                  static_cast<std::size_t>(to.width >> shift));
    }
  }
}

bool ReadSide(const AttrSet& params, const char* key, int most, int& side, std::string& error) {
  const char* text = params.Get(key);
  if (text == nullptr) {
    error = std::string(key) + " is missing";
    return false;
  }
  if (params.Get(key, side) && side >= kLeastSide && side <= most && side % 2 == 0) return true;
  error = std::string(key) + "=" + text + " is not an even number in " +
          std::to_string(kLeastSide) + ".." + std::to_string(most);
  return false;
}

}  // namespace

void CaptureSchedule::Restart(std::int64_t first_ns) {
  _anchor_ns = first_ns;
  _rate = 0;
}

std::int64_t CaptureSchedule::Next(int frames_per_second) {
  const bool is_first = _rate == 0;
  if (!is_first && _rate != frames_per_second) _anchor_ns = _due_ns;
  _steps = _rate == frames_per_second ? _steps + 1 : is_first ? 0 : 1;
  _rate = frames_per_second;
  const std::int64_t due_ns = _anchor_ns + _steps * kSecondNs / _rate;
  _step_ns = is_first ? kSecondNs / _rate : due_ns - _due_ns;
  return _due_ns = due_ns;
}

void CaptureSchedule::MoveTo(std::int64_t now_ns) {
  _anchor_ns = _due_ns = now_ns;
  _steps = 0;
}

PictureBuffer::PictureBuffer(int width, int height) {
  const int luma_stride = (width + 63) / 64 * 64;  // so that half of it is a multiple of 32
  // The luma plane is a multiple of 64 bytes; a chroma plane may be an odd number of 32s.
  const std::size_t luma_bytes =
      static_cast<std::size_t>(luma_stride) * static_cast<unsigned>(height);
  const std::size_t chroma_bytes = (luma_bytes / 4 + kAlignment - 1) / kAlignment * kAlignment;
  // What is written past a line's end stays inside, also behind the last line.
  const std::size_t bytes = luma_bytes + 2 * chroma_bytes + kAlignment;
  _memory.reset(new (std::align_val_t{kAlignment}) std::uint8_t[bytes]());
  std::uint8_t* memory = _memory.get();
  _picture = {.width = width,
              .height = height,
              .planes = {memory, memory + luma_bytes, memory + luma_bytes + chroma_bytes},
              .strides = {luma_stride, luma_stride / 2, luma_stride / 2}};
}

void PictureBuffer::Free::operator()(std::uint8_t* memory) const {
  ::operator delete[](memory, std::align_val_t{kAlignment});
}

bool CameraSource::Open(const Context& context, const AttrSet& params, Media& media,
                        std::string& error) {
  if (!ReadParams(params, error)) return false;
  _nominal_rate = std::clamp(context.FramesPerSecond(), 1, kMostRate);
  _paced = context.GetBoard().paced;
  _writes_slot = !context.EncoderWants();
  _picture_bytes = PackedBytes(_width, _height);
  if (!OpenSensor(context.GetBoard(), error)) return false;
  const bool draws_into_slot = _writes_slot && (_pattern != nullptr || _width % kScalerWidth == 0);
  if (!draws_into_slot) _buffer = PictureBuffer(_width, _height);

  media.width = _width;
  media.height = _height;
  media.frames_per_second = _nominal_rate;
  media.unit_bytes = _picture_bytes;
  media.description = AttrSet();
  if (!_writes_slot) return true;
  media.description.Add("codec", "yuv");
  media.description.Add("w", _width);
  media.description.Add("h", _height);
  media.description.Add("fmt", "420V50");
  media.description.Add("fr", _nominal_rate);
  return true;
}

bool CameraSource::ReadParams(const AttrSet& params, std::string& error) {
  if (!CheckKnown(params, {"w", "h", "fmt"}, error)) return false;
  if (!ReadSide(params, "w", kMostWidth, _width, error)) return false;
  if (!ReadSide(params, "h", kMostHeight, _height, error)) return false;
  const char* format = params.Get("fmt");
  if (format == nullptr || std::strcmp(format, "420V50") == 0) return true;
  error = std::string("fmt=") + format + " is not 420V50";
  return false;
}

bool CameraSource::OpenSensor(const Board& board, std::string& error) {
  if (board.sensor == "test") {
    _pattern = std::make_unique<TestPattern>(_width, _height);
    return true;
  }
  const bool is_camera = board.sensor.starts_with("/dev/video");
  _input = is_camera ? MediaInput::OpenCamera(board.sensor, _width, _height, _nominal_rate, error)
                     : MediaInput::OpenFile(board.sensor, board.loop, error);
  return _input != nullptr;
}

void CameraSource::Start() {
  // Unpaced time stamps may have run ahead of the clock.
  _schedule.Restart(std::max(NowNs(), _last_time_ns + kSecondNs / _nominal_rate));
}

Verdict CameraSource::Await(Unit& unit, StopSignal& stop) {
  const int asked = unit.control.framerate_max;
  const int rate = asked > 0 ? std::min(asked, kMostRate) : _nominal_rate;
  std::int64_t time_ns = _schedule.Next(rate);
  if (_paced) {
    if (!stop.SleepUntil(time_ns)) return Verdict::kEnd;
    const std::int64_t now_ns = NowNs();
    const std::int64_t most_late_ns =
        std::max(kMostPeriodsLate * kSecondNs / rate, kTolerableLatenessNs);
    if (now_ns - time_ns > most_late_ns) _schedule.MoveTo(now_ns);
    time_ns = now_ns;
  }
  // By the plan and not by the clock: jitter would repeat and skip pictures of a file.
  if (std::exchange(_has_begun, true)) _input_time_ns += _schedule.StepNs();
  _last_time_ns = std::max(time_ns, _last_time_ns + 1);
  unit.time_ns = _last_time_ns;
  unit.capture = _captures++;
  unit.frames_per_second = rate;
  return Verdict::kPass;
}

Verdict CameraSource::Skip(Unit&) {
  // Decodes all the same: what is put off would have to be caught up in one go.
  return _input == nullptr ? Verdict::kPass : AdvanceInput();
}

Verdict CameraSource::AdvanceInput() {
  switch (_input->AdvanceTo(_input_time_ns)) {
    case MediaInput::Step::kSame:
      return Verdict::kPass;
    case MediaInput::Step::kNew:
      _buffer_is_current = false;
      return Verdict::kPass;
    case MediaInput::Step::kEnd:
      return Verdict::kEnd;
    case MediaInput::Step::kFailed:
      break;
  }
  return FailWith(_input->Error());
}

Verdict CameraSource::Process(Unit& unit) {
  if (_writes_slot && unit.room.size() < _picture_bytes) {
    return FailWith("a slot of " + std::to_string(unit.room.size()) + " bytes for a picture of " +
                    std::to_string(_picture_bytes));
  }
  unit.picture = _writes_slot ? PackedPicture(_width, _height, unit.room.data()) : _buffer.Get();
  if (_writes_slot) {
    unit.size_bytes = _picture_bytes;
    unit.is_key = true;  // every raw picture stands alone
  }
  if (_pattern != nullptr) {
    _pattern->Draw(unit.capture, unit.picture);
    return Verdict::kPass;
  }
  const Verdict verdict = AdvanceInput();
  return verdict == Verdict::kPass ? Render(unit.picture) : verdict;
}

Verdict CameraSource::Render(const Picture& picture) {
  const bool has_buffer = _buffer.Get().planes[0] != nullptr;
  if (!has_buffer) {
    return _input->Render(picture) ? Verdict::kPass : FailWith(_input->Error());
  }
  if (!_buffer_is_current && !_input->Render(_buffer.Get())) return FailWith(_input->Error());
  _buffer_is_current = true;
  if (_writes_slot) CopyPicture(_buffer.Get(), picture);
  return Verdict::kPass;
}

}  // namespace tessel::rtos
