// Where the test pattern has its number and its lamp. Both are read back from pictures that may
// have been coded and scaled since they were drawn.
#pragma once

#include <algorithm>
#include <cstdint>

namespace tessel::rtos {

inline constexpr int kBits = 32;
// At either end stands a cell of known colour, white left and black right, so that an edge in an
// ordinary picture, such as the border of a letter box, is not taken for a number.
inline constexpr int kColumns = kBits + 2;
// A row of cells is this part of the picture's height. Two rows stay ten lines high at 240 lines.
inline constexpr int kCellRowsPerPicture = 24;
// Below these a cell has fewer than four samples a side, and does not survive coding.
inline constexpr int kLeastCellsWidth = 4 * kColumns;
inline constexpr int kLeastCellsHeight = 4 * kCellRowsPerPicture;

// The lamp's middle: in the last bar, which is black, above and right of the digits.
inline constexpr int kLampColumn = 15;    // of 16
inline constexpr int kLampRow = 9;        // of 48
inline constexpr int kLeastLampSide = 8;  // luma samples

// A part of `whole`, rounded down to an even number.
inline int EvenPart(int whole, int numerator, int denominator) {
  return static_cast<int>(std::int64_t{whole} * numerator / denominator) & ~1;
}

// What the upper row of cells shows, the leftmost cell in the highest bit.
inline std::uint64_t CellsOf(std::uint32_t number) {
  return std::uint64_t{1} << (kColumns - 1) | std::uint64_t{number} << 1;
}

// In luma samples; 0 where the picture is too small for a lamp.
inline int LampSide(int width, int height) {
  const int side = std::min(EvenPart(height, 1, 8), EvenPart(width, 1, 10));
  return side < kLeastLampSide ? 0 : side;
}

// Reads the number that the cells of a picture show. False, with `number` untouched, when the cells
// do not agree with their inverted twins or the picture is too small to hold them. `stride` in
// bytes. Any thread.
bool ReadFrameNumber(const std::uint8_t* luma, int stride, int width, int height,
                     std::uint32_t& number);
// Whether the lamp is lit; false where the picture is too small to hold one. Any thread. REQUIRES:
// ReadFrameNumber() has read the picture's number.
bool IsLampLit(const std::uint8_t* luma, int stride, int width, int height);

}  // namespace tessel::rtos
