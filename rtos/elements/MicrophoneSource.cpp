#include "MicrophoneSource.h"

#include <algorithm>

#include "AudioDevices.h"
#include "Clock.h"
#include "ElementParams.h"
#include "OpenSoundInput.h"

namespace tessel::rtos {
namespace {

constexpr int kBlocksPerSecond = 50;
constexpr std::int64_t kBufferNs = 500'000'000;
constexpr std::int64_t kLookNs = 5'000'000;  // between two reads of a sound card

}  // namespace

bool MicrophoneSource::Open(const Context& context, const AttrSet& params, Media& media,
                            std::string& error) {
  int id = 1;
  if (!CheckKnown(params, {"id"}, error) || !ReadInt(params, "id", 0, 1, id, error)) return false;
  const ChainSettings& settings = context.Settings();
  if (settings.microphone == nullptr) {
    error = "the board has no microphone";
    return false;
  }
  const SoundFormat format = {settings.microphone->Rate(), settings.microphone->Channels()};
  _input = OpenSoundInput(settings.mic, settings.loop, format, error);
  if (_input == nullptr) return false;
  if (settings.IsFilm()) _input->KeepLead();
  _paced = settings.paced || _input->IsDevice();
  _rate = format.rate;
  _block_frames = _rate / kBlocksPerSecond;
  _block.resize(static_cast<std::size_t>(_block_frames) *
                static_cast<std::size_t>(format.channels));
  _device = settings.microphone;
  _level.emplace(format);

  media.sample_rate = format.rate;
  media.channels = format.channels;
  media.frames_per_second = kBlocksPerSecond;
  media.unit_bytes = _block.size() * sizeof(std::int16_t);
  media.description = AttrSet();
  return true;
}

void MicrophoneSource::Start() {
  // Unpaced time stamps may have run ahead of the clock.
  _start_ns = std::max(NowNs(), TimeOf(_frames));
  _frames = 0;
  _next_ns = 0;
  _input->Start();
  _level->Start(_device->Gain());
}

std::int64_t MicrophoneSource::TimeOf(std::int64_t frame) const {
  // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): rates are above 0
  const std::int64_t seconds = frame / _rate;
  return _start_ns + seconds * kSecondNs + (frame - seconds * _rate) * kSecondNs / _rate;
}

// Sleeps until the last sample of the block is captured. False when the chain is told to stop.
bool MicrophoneSource::AwaitClock(StopSignal& stop) {
  if (_paced && !stop.SleepUntil(TimeOf(_frames + _block_frames))) return false;
  const std::int64_t late_ns = NowNs() - TimeOf(_frames + _block_frames);
  if (_paced && late_ns > kBufferNs) {
    const std::int64_t lost = (late_ns - kBufferNs) / (kSecondNs / kBlocksPerSecond) + 1;
    _captures += static_cast<std::uint32_t>(lost);
    _frames += lost * _block_frames;
  }
  _time_ns = TimeOf(_frames);
  return true;
}

// A jump in a sound card's time stamps means that whole blocks are missing.
void MicrophoneSource::CountLost() {
  constexpr std::int64_t kBlockNs = kSecondNs / kBlocksPerSecond;
  const std::int64_t gap_ns = _next_ns == 0 ? 0 : _time_ns - _next_ns;
  if (gap_ns > kBlockNs / 2) {
    _captures += static_cast<std::uint32_t>((gap_ns + kBlockNs / 2) / kBlockNs);
  }
  _next_ns = _time_ns + kBlockNs;
}

SoundInput::Step MicrophoneSource::ReadBlock(StopSignal& stop) {
  SoundInput::Step step = _input->Read(_block, _time_ns);
  while (step == SoundInput::Step::kNothingYet) {
    if (!stop.SleepUntil(NowNs() + kLookNs)) return SoundInput::Step::kEnd;
    step = _input->Read(_block, _time_ns);
  }
  return step;
}

Verdict MicrophoneSource::Await(Unit& unit, StopSignal& stop) {
  const std::uint32_t expected = _captures;
  if (!_input->IsDevice() && !AwaitClock(stop)) return Verdict::kEnd;
  switch (ReadBlock(stop)) {
    case SoundInput::Step::kSamples:
      break;
    case SoundInput::Step::kNothingYet:
    case SoundInput::Step::kEnd:
      return Verdict::kEnd;
    case SoundInput::Step::kFailed:
      return FailWith(_input->Error());
  }
  if (_input->IsDevice()) CountLost();
  _frames += _block_frames;
  unit.time_ns = _time_ns;
  unit.missed = _captures - expected;
  unit.capture = _captures++;
  unit.frames_per_second = kBlocksPerSecond;
  return Verdict::kPass;
}

Verdict MicrophoneSource::Process(Unit& unit) {
  _level->Apply(_block, _device->Gain(), _device->HasAutomaticGain());
  unit.samples = _block;
  return Verdict::kPass;
}

}  // namespace tessel::rtos
