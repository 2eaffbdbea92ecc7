// Converts a picture's colour coding: between ITU-R BT.601 and BT.709, full and limited range.
#pragma once

#include <cstdint>

#include "Picture.h"

namespace tessel::rtos {

// What Y, U and V mean. The chroma carries B - Y and R - Y, to the same scale as the luma.
struct Coding {
  double red = 0;   // part of red in the luma, Kr; green is what is left
  double blue = 0;  // Kb
  bool is_full_range = false;
  friend bool operator==(const Coding&, const Coding&) = default;
};

inline constexpr double kBt601Red = 0.299, kBt601Blue = 0.114;    // ITU-R BT.601, 2.5.1
inline constexpr double kBt709Red = 0.2126, kBt709Blue = 0.0722;  // ITU-R BT.709, item 3.2

// The coding of `colours`. Any thread.
Coding CodingOf(Colours colours);

// Within one level of the exact result. Constant after construction. Any thread.
class ColourMatrix {
 public:
  // Changes nothing.
  ColourMatrix() = default;
  ColourMatrix(const Coding& from, const Coding& to);

  // Converts planar 4:2:0 in place. The four luma samples of a chroma sample move by one amount.
  // Colours outside the new coding become the nearest ones inside it.
  // REQUIRES: even sides.
  void Convert(const Picture& picture) const;

 private:
  // Factors in 1/16384.
  bool _changes = false;
  std::int16_t _y_y = 0;
  std::int16_t _y_base = 0;  // added to the luma, 1/32 levels, half a level for rounding included
  std::int16_t _y_u = 0, _y_v = 0;
  std::int16_t _u_u = 0, _u_v = 0;
  std::int16_t _v_u = 0, _v_v = 0;
};

}  // namespace tessel::rtos
