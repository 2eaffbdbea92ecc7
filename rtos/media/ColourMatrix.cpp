#include "ColourMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tessel::rtos {
namespace {

// All is done in 16 bits, so that the compiler can take eight samples at a time on any machine: a
// level times 128, times a factor in 1/16384, upper half, leaves 1/32 levels.
constexpr int kFactor = 16384;
constexpr int kPart = 32;
constexpr int kGrey = 128;

std::int16_t ToFactor(double factor) {
  return static_cast<std::int16_t>(std::lround(factor * kFactor));
}

// `level` may be negative; the result is in 1/32.
std::int16_t Times(int level, std::int16_t factor) {
  return static_cast<std::int16_t>(static_cast<std::int16_t>(level * 128) * factor >> 16);
}

std::uint8_t ToByte(int parts) { return static_cast<std::uint8_t>(std::clamp(parts >> 5, 0, 255)); }

double Black(const Coding& coding) { return coding.is_full_range ? 0 : 16; }
double LumaSpan(const Coding& coding) { return coding.is_full_range ? 255 : 219; }
double ChromaSpan(const Coding& coding) { return coding.is_full_range ? 255 : 224; }

// What a chroma sample amounts to in the other coding, all of them where 1 is the whole span.
struct Shares {
  double y, u, v;
};

// A colour without luma, by how far its parts lie from the luma.
Shares SharesOf(double red, double green, double blue, const Coding& to) {
  const double y = to.red * red + (1 - to.red - to.blue) * green + to.blue * blue;
  return {y, (blue - y) / (2 * (1 - to.blue)), (red - y) / (2 * (1 - to.red))};
}

}  // namespace

Coding CodingOf(Colours colours) {
  return colours == Colours::kJpeg ? Coding{kBt601Red, kBt601Blue, true}
                                   : Coding{kBt709Red, kBt709Blue, false};
}

ColourMatrix::ColourMatrix(const Coding& from, const Coding& to) : _changes(from != to) {
  const double from_green = 1 - from.red - from.blue;
  const double blue = 2 * (1 - from.blue);  // B - Y where U is 1
  const double red = 2 * (1 - from.red);    // R - Y where V is 1
  const Shares u = SharesOf(0, -from.blue / from_green * blue, blue, to);
  const Shares v = SharesOf(red, -from.red / from_green * red, 0, to);
  const double luma = LumaSpan(to) / LumaSpan(from);
  const double chroma = ChromaSpan(to) / ChromaSpan(from);
  const double chroma_to_luma = LumaSpan(to) / ChromaSpan(from);
  _y_y = ToFactor(luma);
  _y_base = static_cast<std::int16_t>(std::lround((Black(to) - luma * Black(from) + 0.5) * kPart));
  _y_u = ToFactor(u.y * chroma_to_luma);
  _y_v = ToFactor(v.y * chroma_to_luma);
  _u_u = ToFactor(u.u * chroma);
  _u_v = ToFactor(v.u * chroma);
  _v_u = ToFactor(u.v * chroma);
  _v_v = ToFactor(v.v * chroma);
}

void ColourMatrix::Convert(const Picture& picture) const {
  if (!_changes) return;
  // Copies, since for the compiler samples may lie anywhere.
  const ColourMatrix m = *this;
  const std::ptrdiff_t width = picture.width / 2;
  for (std::ptrdiff_t line = 0; line < picture.height / 2; ++line) {
    std::uint8_t* top = picture.planes[0] + 2 * line * picture.strides[0];
    std::uint8_t* bottom = top + picture.strides[0];
    std::uint8_t* us = picture.planes[1] + line * picture.strides[1];
    std::uint8_t* vs = picture.planes[2] + line * picture.strides[2];
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      const int u = us[x] - kGrey;
      const int v = vs[x] - kGrey;
      const int shift = Times(u, m._y_u) + Times(v, m._y_v) + m._y_base;
      top[2 * x] = ToByte(Times(top[2 * x], m._y_y) + shift);
      top[2 * x + 1] = ToByte(Times(top[2 * x + 1], m._y_y) + shift);
      bottom[2 * x] = ToByte(Times(bottom[2 * x], m._y_y) + shift);
      bottom[2 * x + 1] = ToByte(Times(bottom[2 * x + 1], m._y_y) + shift);
      constexpr int kBase = kGrey * kPart + kPart / 2;
      us[x] = ToByte(Times(u, m._u_u) + Times(v, m._u_v) + kBase);
      vs[x] = ToByte(Times(u, m._v_u) + Times(v, m._v_v) + kBase);
    }
  }
}

}  // namespace tessel::rtos
