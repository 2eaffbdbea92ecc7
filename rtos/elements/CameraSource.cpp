#include "CameraSource.h"

#include <algorithm>
#include <utility>

#include "Clock.h"
#include "ElementParams.h"
#include "InputNames.h"

namespace tessel::rtos {
namespace {

constexpr int kLeastSide = 16;
constexpr int kMostWidth = 7680;
constexpr int kMostHeight = 4320;
constexpr int kMostRate = 1000;  // frames/s
// A capture that is later than both was delayed from outside; the captures missed meanwhile are
// not made up for.
constexpr int kMostPeriodsLate = 3;
constexpr std::int64_t kTolerableLatenessNs = 50'000'000;
constexpr std::int64_t kLampNs = 100'000'000;  // for how long the test pattern's lamp is lit

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

// The tone beeps at each whole second of CLOCK_MONOTONIC. The lamp is lit in the picture nearest to
// that and in those of the following tenth of a second.
bool IsLampTime(const Unit& unit) {
  const std::int64_t period_ns = kSecondNs / unit.frames_per_second;
  return (unit.time_ns + period_ns / 2) % kSecondNs < std::max(kLampNs, period_ns);
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
  if (_steps == _rate) {  // so that no count runs over
    _anchor_ns += kSecondNs;
    _steps = 0;
  }
  // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): rates are above 0
  const std::int64_t due_ns = _anchor_ns + _steps * kSecondNs / _rate;
  _step_ns = is_first ? kSecondNs / _rate : due_ns - _due_ns;
  return _due_ns = due_ns;
}

void CaptureSchedule::MoveTo(std::int64_t now_ns) {
  _anchor_ns = _due_ns = now_ns;
  _steps = 0;
}

bool CameraSource::Open(const Context& context, const AttrSet& params, Media& media,
                        std::string& error) {
  const ElementRow* encoder = context.Encoder();
  const auto encoder_wants = encoder == nullptr ? std::nullopt : encoder->encodes;
  _writes_slot = !encoder_wants;
  if (!ReadParams(params, error)) return false;
  _nominal_rate = std::clamp(context.FramesPerSecond(), 1, kMostRate);
  _paced = context.Settings().paced;
  _picture_bytes = PackedBytes(*_format, _width, _height);
  if (!OpenSensor(context.Settings(), encoder_wants.value_or(Colours::kVideo), error)) return false;

  media.width = _width;
  media.height = _height;
  media.frames_per_second = _nominal_rate;
  media.unit_bytes = _picture_bytes;
  media.description = AttrSet();
  if (_writes_slot) Describe(media.description);
  return true;
}

bool CameraSource::ReadParams(const AttrSet& params, std::string& error) {
  if (!CheckKnown(params, {"w", "h", "fmt"}, error)) return false;
  if (!ReadSide(params, "w", kMostWidth, _width, error)) return false;
  if (!ReadSide(params, "h", kMostHeight, _height, error)) return false;
  if (const char* name = params.Get("fmt")) _format_name = name;
  _format = FindPixelFormat(_format_name);
  if (_format == nullptr) {
    error = "fmt=" + _format_name + " is none of " + PixelFormatNames();
    return false;
  }
  if (_writes_slot || _format == &Planar420()) return true;
  error = "fmt=" + _format_name + " is not " + Planar420().name + ", which an encoder takes";
  return false;
}

void CameraSource::Describe(AttrSet& description) const {
  description.Add(media_key::kCodec, "yuv");
  description.Add(media_key::kWidth, _width);
  description.Add(media_key::kHeight, _height);
  description.Add(media_key::kFormat, _format_name);
  description.Add(media_key::kFrameRate, _nominal_rate);
  if (const char* name = LibraryName(*_format)) description.Add(media_key::kPixelFormat, name);
  description.Add(media_key::kStride, PackedPicture(*_format, _width, _height, nullptr).strides[0]);
  description.Add(media_key::kPictureBytes, _picture_bytes);
}

bool CameraSource::OpenSensor(const ChainSettings& settings, Colours colours, std::string& error) {
  const bool is_pattern = settings.sensor == kTestInput;
  const bool needs_scaler = !is_pattern || !IsPlanar420(*_format);
  const bool fits_slot = !needs_scaler || _width % kScalerWidth == 0;
  if (needs_scaler) _scaler = std::make_unique<Scaler>(*_format, colours);
  if (!_writes_slot || !fits_slot) _buffer = PictureBuffer(*_format, _width, _height);
  if (is_pattern) {
    if (needs_scaler) _drawn = PictureBuffer(Planar420(), _width, _height);
    _pattern = std::make_unique<TestPattern>(_width, _height, colours);
    return true;
  }
  const bool is_camera = settings.sensor.starts_with(kCameraPrefix);
  _input = is_camera
               ? MediaInput::OpenCamera(settings.sensor, _width, _height, _nominal_rate, error)
               : MediaInput::OpenFile(settings.sensor, settings.loop, error);
  if (_input != nullptr && settings.IsFilm()) _input->KeepLead();
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
    if (now_ns - time_ns > most_late_ns) {
      _schedule.MoveTo(now_ns);
      unit.missed = static_cast<std::uint32_t>((now_ns - time_ns) / (kSecondNs / rate));
      _captures += unit.missed;
    }
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
  // Decodes nevertheless; otherwise the next picture would have to decode all that was skipped.
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
  if (_input != nullptr) {
    const Verdict verdict = AdvanceInput();
    if (verdict != Verdict::kPass) return verdict;
  }
  if (!_writes_slot) {
    unit.picture = _buffer.Get();
    return FillBuffer(unit);
  }
  const Picture slot = PackedPicture(*_format, _width, _height, unit.room.data());
  unit.picture = IsPlanar420(*_format) ? slot : Picture();
  unit.size_bytes = _picture_bytes;
  unit.is_key = true;  // every raw picture stands alone
  if (!_buffer) return Make(unit, slot);
  const Verdict verdict = FillBuffer(unit);
  if (verdict == Verdict::kPass) CopyPicture(*_format, _buffer.Get(), slot);
  return verdict;
}

// Does nothing where the input still shows the picture that the buffer holds.
Verdict CameraSource::FillBuffer(const Unit& unit) {
  if (_buffer_is_current) return Verdict::kPass;
  const Verdict verdict = Make(unit, _buffer.Get());
  _buffer_is_current = _input != nullptr && verdict == Verdict::kPass;
  return verdict;
}

Verdict CameraSource::Make(const Unit& unit, const Picture& into) {
  if (_input != nullptr) {
    return _input->Render(*_scaler, into) ? Verdict::kPass : FailWith(_input->Error());
  }
  _pattern->Draw(unit.capture, _scaler == nullptr ? into : _drawn.Get(), IsLampTime(unit));
  if (_scaler == nullptr || _scaler->Scale(_drawn.Get(), into)) return Verdict::kPass;
  return FailWith("cannot convert the test pattern");
}

}  // namespace tessel::rtos
