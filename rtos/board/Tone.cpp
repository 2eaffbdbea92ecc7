#include "Tone.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "Clock.h"

namespace tessel::rtos {
namespace {

constexpr double kAmplitude = 0.25;
constexpr double kMarkerAmplitude = 0.125;
constexpr double kFullScale = 32768;
constexpr double kBeepSeconds = 0.1;
constexpr double kEdgeSeconds = 0.001;

double SineOfTurns(double turns) { return std::sin(2 * std::numbers::pi * turns); }

}  // namespace

Tone::Tone(int hz, bool has_beeps, const SoundFormat& format)
    : _hz(hz), _has_beeps(has_beeps), _format(format) {}

SoundInput::Step Tone::Read(std::span<std::int16_t> samples, std::int64_t& time_ns) {
  const auto rate = static_cast<std::uint64_t>(_format.rate);
  const auto hz = static_cast<std::uint64_t>(_hz);
  const auto channels = static_cast<std::size_t>(_format.channels);
  for (std::size_t frame = 0; frame * channels < samples.size(); ++frame, ++_index) {
    // The turns of half the frequency, but for whole ones, which are cut off before anything is
    // rounded. All of it repeats after two seconds.
    const double half_turns =
        static_cast<double>(_index % (2 * rate) * hz % (2 * rate)) / static_cast<double>(2 * rate);
    double level = kAmplitude * SineOfTurns(2 * half_turns);
    if (_has_beeps) {
      const auto since_block_ns = static_cast<std::int64_t>(frame * kSecondNs / rate);
      level += Beep((time_ns + since_block_ns) % kSecondNs);
    }
    std::int16_t* out = &samples[frame * channels];
    std::fill_n(out, channels, static_cast<std::int16_t>(std::lround(kFullScale * level)));
    if (channels < 2) continue;
    level += kMarkerAmplitude * SineOfTurns(half_turns);
    out[1] = static_cast<std::int16_t>(std::lround(kFullScale * level));
  }
  return Step::kSamples;
}

double Tone::Beep(std::int64_t since_second_ns) const {
  const double seconds = static_cast<double>(since_second_ns) / static_cast<double>(kSecondNs);
  if (seconds >= kBeepSeconds) return 0;
  const double to_edge = std::min(seconds, kBeepSeconds - seconds);
  const double rise = std::min(to_edge / kEdgeSeconds, 1.0);
  const double envelope = 0.5 - 0.5 * std::cos(std::numbers::pi * rise);
  return kAmplitude * envelope * SineOfTurns(kBeepHz * seconds);
}

}  // namespace tessel::rtos
