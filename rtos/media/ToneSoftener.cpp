#include "ToneSoftener.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tessel::rtos {
namespace {

constexpr float kLoudPeak = 0.4F;

// RMS of the noise, full scale being 1: -65.5 dB at 128 kbit/s and 48 kHz. For one channel, and for
// two that are alike, about 4 dB less were measured to be enough.
double NoiseRms(std::int64_t bit_rate_bps, int rate) {
  const double bits = static_cast<double>(bit_rate_bps) / rate;  // of all channels for one sample
  return std::pow(10.0, std::min(-78 + 4.7 * bits, -50.0) / 20);
}

// RMS residual of 4th-order linear prediction: the noise beside up to two pure tones.
double PredictionResidual(std::span<const float> samples) {
  constexpr std::size_t kOrder = 4;
  double matrix[kOrder][kOrder + 1] = {};  // correlations; last column: with the sample
  for (std::size_t i = kOrder; i < samples.size(); ++i) {
    for (std::size_t row = 0; row < kOrder; ++row) {
      for (std::size_t column = 0; column <= kOrder; ++column) {
        const float other = column == kOrder ? samples[i] : samples[i - 1 - column];
        matrix[row][column] += double{samples[i - 1 - row]} * other;
      }
    }
  }
  const double ridge = 1e-9 * matrix[0][0];  // tones alone leave it without an inverse
  for (std::size_t row = 0; row < kOrder; ++row) matrix[row][row] += ridge;
  for (std::size_t pivot = 0; pivot < kOrder; ++pivot) {
    for (std::size_t row = 0; row < kOrder; ++row) {
      if (row == pivot) continue;
      const double factor = matrix[row][pivot] / matrix[pivot][pivot];
      for (std::size_t i = pivot; i <= kOrder; ++i) matrix[row][i] -= factor * matrix[pivot][i];
    }
  }
  double power = 0;
  for (std::size_t i = kOrder; i < samples.size(); ++i) {
    double rest = samples[i];
    for (std::size_t k = 0; k < kOrder; ++k) {
      rest -= matrix[k][kOrder] / matrix[k][k] * samples[i - 1 - k];
    }
    power += rest * rest;
  }
  return std::sqrt(power / static_cast<double>(samples.size() - kOrder));
}

}  // namespace

ToneSoftener::ToneSoftener(std::int64_t bit_rate_bps, int rate)
    : _noise_rms(NoiseRms(bit_rate_bps, rate)) {
  // Uniform noise: its RMS is the limit divided by the square root of 3.
  const auto limit = static_cast<float>(_noise_rms * std::sqrt(3.0));
  _noise = std::uniform_real_distribution<float>(-limit, limit);
}

void ToneSoftener::Apply(std::span<float> samples) {
  const bool is_loud = std::any_of(samples.begin(), samples.end(),
                                   [](float sample) { return std::abs(sample) > kLoudPeak; });
  if (!is_loud || PredictionResidual(samples) > _noise_rms) return;
  for (float& sample : samples) sample += _noise(_random);
}

}  // namespace tessel::rtos
