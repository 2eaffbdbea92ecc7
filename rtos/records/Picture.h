// Raw pictures, as the elements of a chain hand them on.
#pragma once

#include <cstdint>

namespace tessel::rtos {

// How the samples of a picture code its colours.
enum class Colours {
  kVideo,  // ITU-R BT.709, limited range
  kJpeg,   // ITU-R BT.601, full range, as in JFIF files
};

// A raw picture, planar YUV 4:2:0, 8 bits. It borrows its memory. Lines may be written up to their
// stride.
struct Picture {
  int width = 0;                 // luma samples
  int height = 0;                // luma lines
  std::uint8_t* planes[3] = {};  // Y, U, V
  int strides[3] = {};           // bytes from line to line
};

}  // namespace tessel::rtos
