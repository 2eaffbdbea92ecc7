// How hard pictures are to code.
#pragma once

#include <cstdint>
#include <vector>

namespace tessel::rtos {

// In luma levels, summed over the samples of a picture. Never 0: a flat picture costs something
// too.
struct Complexity {
  double detail = 1;  // from a sample to its neighbours
  double change = 1;  // from the picture before, or the detail where that is less
};

// Compares each picture with the one before, on a coarse grid. One thread at a time.
class ComplexityMeter {
 public:
  // `stride` in bytes.
  Complexity Measure(const std::uint8_t* luma, int stride, int width, int height);

 private:
  std::vector<std::uint8_t> _samples;   // the grid of this picture
  std::vector<std::uint8_t> _previous;  // and of the one before, empty at first
};

}  // namespace tessel::rtos
