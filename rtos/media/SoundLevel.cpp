#include "SoundLevel.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>

namespace tessel::rtos {
namespace {

constexpr double kFullScale = 32768;
constexpr double kSmoothing_s = 0.5;
constexpr double kSilence = 1e-6;           // power of -60 dB
constexpr double kTarget = 0.1;             // RMS, -20 dB
constexpr double kMostPeak = 0.891;         // -1 dB
constexpr double kLeastGain = 0.1;          // -20 dB
constexpr double kMostGain = 31.6;          // +30 dB
constexpr double kDbPerSecond = 6;          //
constexpr int kTransitionsPerSecond = 100;  // each takes 10 ms

struct Loudness {
  double power;  // mean
  double peak;
};

Loudness Measure(std::span<const std::int16_t> samples) {
  double sum = 0;
  int peak = 0;
  for (const std::int16_t sample : samples) {
    sum += static_cast<double>(sample) * sample;
    peak = std::max(peak, std::abs(int{sample}));
  }
  return {sum / static_cast<double>(samples.size()) / (kFullScale * kFullScale), peak / kFullScale};
}

std::int16_t Scaled(std::int16_t sample, float gain) {
  using Limits = std::numeric_limits<std::int16_t>;
  const long value = std::lrint(static_cast<float>(sample) * gain);
  return static_cast<std::int16_t>(std::clamp<long>(value, Limits::min(), Limits::max()));
}

}  // namespace

// The automatic gain for this block.
float SoundLevel::Follow(std::span<const std::int16_t> samples) {
  const auto [power, peak] = Measure(samples);
  const double block_s = static_cast<double>(samples.size()) / _format.channels / _format.rate;
  const double share = _power == 0 ? 1 : 1 - std::exp(-block_s / kSmoothing_s);
  _power += share * (power - _power);
  double gain = _automatic;
  if (power > kSilence && _power > kSilence) {
    const double wanted = std::clamp(kTarget / std::sqrt(_power), kLeastGain, kMostGain);
    const double step = std::pow(10, kDbPerSecond * block_s / 20);
    gain = std::clamp(wanted, gain / step, gain * step);
  }
  if (peak * gain > kMostPeak) {
    gain = kMostPeak / peak;
    _gain = std::min(_gain, static_cast<float>(gain));  // without a transition, which would clip
  }
  return static_cast<float>(gain);
}

void SoundLevel::Apply(std::span<std::int16_t> samples, float volume, bool has_automatic_gain) {
  if (!has_automatic_gain) _power = 0;
  _automatic = has_automatic_gain ? Follow(samples) : 1;
  const float gain = _automatic * volume;
  if (gain == 1 && _gain == 1) return;
  const auto channels = static_cast<std::size_t>(_format.channels);
  const std::size_t frames = samples.size() / channels;
  const auto transition = static_cast<std::size_t>(_format.rate / kTransitionsPerSecond);
  const float step = (gain - _gain) / static_cast<float>(transition);
  for (std::size_t i = 0; i < frames; ++i) {
    const float now = i < transition ? _gain + step * static_cast<float>(i + 1) : gain;
    for (std::int16_t& sample : samples.subspan(i * channels, channels)) {
      sample = Scaled(sample, now);
    }
  }
  _gain = gain;
}

}  // namespace tessel::rtos
