// The picture of a board without a camera. It moves, it is cheap to make, it gives an encoder
// something to do, and people and programs (see PatternMarks.h) can read each picture's number:
//
// clang-format off
//   ┌─┬─┬─┬─┬─ … ─┬─┐  34 cells: a white one, 32 bits with the highest first (1 is white), a black one
//   ├─┼─┼─┼─┼─ … ─┼─┤  the same cells inverted: a reader compares and needs no threshold
//   │  colour bars  │  a plate with the number in digits, a box that bounces, a line that sweeps, and
//   │            □  │  a lamp, so that pictures can be compared with sound
//   ├───────┬───────┤
//   │texture│ noise │  the texture pans; the noise is new in each picture
//   └───────┴───────┘
// clang-format on
#pragma once

#include <cstdint>
#include <vector>

#include "Picture.h"

namespace tessel::rtos {

// One thread at a time.
class TestPattern {
 public:
  // `width` x `height` luma samples, even, at least 16 x 16.
  TestPattern(int width, int height, Colours colours);

  // Draws picture `number` into the planes of `picture`, every sample of them, its lamp lit or not.
  // The same arguments always give the same picture. REQUIRES: `picture` has the size given at
  // construction.
  void Draw(std::uint32_t number, const Picture& picture, bool is_lit) const;

 private:
  // A rectangle in luma samples; Fill() rounds it to whole chroma samples.
  struct Box {
    int left, top, width, height;
  };
  struct Colour {
    std::uint8_t y, u, v;
  };

  // Converts a colour from BT.709, limited range, to the coding of the pattern.
  Colour Show(Colour colour) const;
  void DrawBackground();
  void MakeNoise(int lines);
  void Fill(const Picture& picture, Box box, Colour colour) const;
  void DrawCells(std::uint32_t number, const Picture& picture) const;
  void DrawTexture(std::uint32_t number, const Picture& picture) const;
  void DrawNoise(std::uint32_t number, const Picture& picture) const;
  void DrawMovers(std::uint32_t number, const Picture& picture) const;
  void DrawDigits(std::uint32_t number, const Picture& picture) const;
  void DrawLamp(const Picture& picture, bool is_lit) const;

  // Constant after construction.
  int _width;
  int _height;
  Colours _colours;
  Colour _black;
  Colour _white;
  Colour _grey;
  Colour _red;
  int _bars_top;
  int _bars_bottom;
  std::vector<std::uint8_t> _planes[3];  // what does not move, tightly packed
  std::vector<std::uint8_t> _texture;    // luma, the left half of the lower part, repeats sideways
  std::vector<std::uint8_t> _noise;      // luma, larger than where it shows, see DrawNoise()
  int _noise_stride = 0;                 // samples
};

}  // namespace tessel::rtos
