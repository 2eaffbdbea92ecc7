// Judges sound by the tones in it.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>

namespace tessel::tests {

// The sine of `hertz` that fits best to the samples [first, last): its amplitude, and
// its phase at sample 0.
template <typename Samples>
std::complex<double> FitTone(const Samples& samples, double hertz, int rate, std::size_t first,
                             std::size_t last) {
  std::complex<double> sum;
  for (std::size_t i = first; i < last; ++i) {
    const double turns = std::fmod(static_cast<double>(i) * hertz, rate) / rate;
    sum += std::polar(1.0, -2 * std::numbers::pi * turns) * static_cast<double>(samples[i]);
  }
  return sum * std::complex<double>(0, 2) / static_cast<double>(last - first);
}

}  // namespace tessel::tests
