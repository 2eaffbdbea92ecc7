#include "Complexity.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace tessel::rtos {
namespace {

constexpr double kLeastLevel = 0.2;  // what a flat picture costs, levels a sample
constexpr int kGridColumns = 480;    // at most twice as many samples across
constexpr int kBlock = 8;            // samples; a block is either new or like before as a whole

}  // namespace

Complexity ComplexityMeter::Measure(const std::uint8_t* luma, int stride, int width, int height) {
  const int step = std::max(1, width / kGridColumns);
  const int columns = width / step;
  const int rows = height / step;
  _samples.swap(_previous);
  const bool has_previous = !_previous.empty();
  _samples.resize(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
  for (int y = 0; y < rows; ++y) {
    const std::uint8_t* line = luma + std::ptrdiff_t{y} * step * stride;
    std::uint8_t* to = _samples.data() + std::ptrdiff_t{y} * columns;
    for (int x = 0; x < columns; ++x) to[x] = line[std::ptrdiff_t{x} * step];
  }

  std::int64_t detail = 0;
  std::int64_t change = 0;
  for (int top = 1; top + kBlock <= rows; top += kBlock) {
    for (int left = 1; left + kBlock <= columns; left += kBlock) {
      int block_detail = 0;
      int block_change = 0;
      for (int y = top; y < top + kBlock; ++y) {
        const std::ptrdiff_t at = std::ptrdiff_t{y} * columns + left;
        const std::uint8_t* now = _samples.data() + at;
        const std::uint8_t* before = has_previous ? _previous.data() + at : now;
        for (int x = 0; x < kBlock; ++x) {
          block_detail +=
              std::min(std::abs(now[x] - now[x - 1]), std::abs(now[x] - now[x - columns]));
          block_change += std::abs(now[x] - before[x]);
        }
      }
      detail += block_detail;
      change += has_previous ? std::min(block_change, block_detail) : block_detail;
    }
  }
  // The grid stands for all the samples.
  const double scale = static_cast<double>(step) * step;
  const double least = kLeastLevel * width * height;
  return {.detail = static_cast<double>(detail) * scale + least,
          .change = static_cast<double>(change) * scale + least};
}

}  // namespace tessel::rtos
