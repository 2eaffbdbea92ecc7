#include "SoundQueue.h"

#include <algorithm>

extern "C" {
#include <libavutil/frame.h>
}

#include "Clock.h"

namespace tessel::rtos {
namespace {

constexpr int kLeastRate = 4'000;  // samples/s
constexpr int kMostRate = 768'000;

}  // namespace

bool SoundQueue::Add(const AVFrame& frame) {
  // A file may claim any rate, and would be blown up by the ratio.
  if (frame.sample_rate < kLeastRate || frame.sample_rate > kMostRate) return false;
  const SoundFormat from = {.rate = frame.sample_rate, .channels = frame.ch_layout.nb_channels};
  const bool is_as_before =
      _converter != nullptr && from == _from && frame.format == _from_sample_format;
  if (!is_as_before) {
    if (!Finish()) return false;
    _from = from;
    _from_sample_format = frame.format;
    _converter = SoundConverter::Create(from, frame.format, _format, AV_SAMPLE_FMT_S16);
    if (_converter == nullptr) return false;
  }
  return Convert(frame.extended_data, frame.nb_samples);
}

bool SoundQueue::Finish() {
  const bool is_done = _converter == nullptr || Convert(nullptr, 0);
  _converter.reset();
  return is_done;
}

bool SoundQueue::Convert(const std::uint8_t* const* in, int frames) {
  const auto channels = static_cast<std::size_t>(_format.channels);
  _samples.erase(_samples.begin(), _samples.begin() + static_cast<std::ptrdiff_t>(_taken));
  _taken = 0;
  const std::size_t before = _samples.size();
  const int most = std::max(0, _converter->MostFrames(frames));
  _samples.resize(before + static_cast<std::size_t>(most) * channels);
  auto* out = reinterpret_cast<std::uint8_t*>(_samples.data() + before);
  const int made = _converter->Convert(in, frames, &out, most);
  _samples.resize(before + static_cast<std::size_t>(std::max(0, made)) * channels);
  return made >= 0;
}

void SoundQueue::Clear() {
  _samples.clear();
  _taken = 0;
  _converter.reset();
}

std::size_t SoundQueue::Take(std::span<std::int16_t> samples) {
  const std::size_t count = std::min(samples.size(), Size());
  std::copy_n(_samples.data() + _taken, count, samples.data());
  _taken += count;
  return count;
}

std::int64_t SoundQueue::LengthNs() const {
  const auto frames = static_cast<std::int64_t>(Size()) / _format.channels;
  const std::int64_t kept_back_ns = _converter == nullptr ? 0 : _converter->DelayNs();
  return frames * kSecondNs / _format.rate + kept_back_ns;
}

}  // namespace tessel::rtos
