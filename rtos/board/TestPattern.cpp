#include "TestPattern.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "ColourMatrix.h"
#include "PatternMarks.h"

namespace tessel::rtos {
namespace {

// As all levels and colours here in BT.709, limited range, whatever the pattern is shown in.
constexpr std::uint8_t kBlack = 16;
constexpr std::uint8_t kWhite = 235;
constexpr std::uint8_t kGrey = 128;

// Luma levels, from the upper to the lower edge: whatever the QP, some of the noise is worth coding
// and some is not, so that the bit rate follows the QP smoothly.
constexpr int kLeastNoise = 3;
constexpr int kMostNoise = 28;
// How far the noise may be shifted. Enough places that a picture's noise is new to the encoder.
constexpr int kNoisePlacesX = 256;
constexpr int kNoisePlacesY = 64;

constexpr int kTextureSpeed = 4;  // luma samples a picture

// 75 % bars.
constexpr std::uint8_t kBars[8][3] = {
    {180, 128, 128}, {168, 44, 136}, {145, 147, 44}, {133, 63, 52},
    {63, 193, 204},  {51, 109, 212}, {28, 212, 120}, {16, 128, 128},
};

// Five columns by seven rows; the highest of five bits is the leftmost column.
constexpr std::uint8_t kDigits[10][7] = {
    {14, 17, 19, 21, 25, 17, 14}, {4, 12, 4, 4, 4, 4, 14},  {14, 17, 1, 2, 4, 8, 31},
    {31, 2, 4, 2, 1, 17, 14},     {2, 6, 10, 18, 31, 2, 2}, {31, 16, 30, 1, 1, 17, 14},
    {6, 8, 16, 30, 17, 17, 14},   {31, 1, 2, 4, 8, 8, 8},   {14, 17, 17, 14, 17, 17, 14},
    {14, 17, 17, 15, 1, 2, 12},
};

// To and fro between 0 and `span`, in steps of `speed`.
int Bounce(std::uint32_t number, int speed, int span) {
  if (span <= 0) return 0;
  const auto period = static_cast<std::uint64_t>(span) * 2;
  const auto at = static_cast<int>(std::uint64_t{number} * static_cast<unsigned>(speed) % period);
  return at <= span ? at : 2 * span - at;
}

std::uint32_t Scatter(std::uint32_t number) {
  number = (number ^ (number >> 16)) * 0x7feb352dU;
  number = (number ^ (number >> 15)) * 0x846ca68bU;
  return number ^ (number >> 16);
}

std::uint8_t ToByte(double level) {
  return static_cast<std::uint8_t>(std::lround(std::clamp(level, 0.0, 255.0)));
}

// A level of luma, without colour, as `colours` have it.
std::uint8_t Luma(double level, Colours colours) {
  return ToByte(colours == Colours::kVideo ? level : (level - kBlack) * 255 / (kWhite - kBlack));
}

// Smooth hills of several sizes that join at the left and right edge.
std::vector<std::uint8_t> MakeTexture(int width, int height, Colours colours) {
  std::vector<std::uint8_t> texture(static_cast<std::size_t>(width) * height);
  constexpr double kTurn = 6.283185307179586;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double across = kTurn * x / width;
      const double down = kTurn * y / height;
      const double level = 40 * std::sin(across * 3 + 2 * std::sin(down)) +
                           24 * std::sin(across * 17 + down * 5) +
                           16 * std::sin(across * 41 - down * 13);
      texture[static_cast<std::size_t>(y) * width + x] = Luma(std::round(126 + level), colours);
    }
  }
  return texture;
}

void CopyPlane(const std::uint8_t* from, int width, int height, std::uint8_t* to, int stride) {
  if (stride == width) {
    std::memcpy(to, from, static_cast<std::size_t>(width) * height);
    return;
  }
  for (int y = 0; y < height; ++y, from += width, to += stride) {
    std::memcpy(to, from, static_cast<std::size_t>(width));
  }
}

}  // namespace

TestPattern::TestPattern(int width, int height, Colours colours)
    : _width(width),
      _height(height),
      _colours(colours),
      _black(Show({kBlack, kGrey, kGrey})),
      _white(Show({kWhite, kGrey, kGrey})),
      _grey(Show({kGrey, kGrey, kGrey})),
      _red(Show({82, 90, 240})),
      _bars_top(EvenPart(height, 2, kCellRowsPerPicture) + 2),
      _bars_bottom(EvenPart(height, 2, 3)) {
  DrawBackground();
  const int lower = _height - _bars_bottom;
  _texture = MakeTexture(_width / 2, lower, colours);
  MakeNoise(lower + kNoisePlacesY);
}

TestPattern::Colour TestPattern::Show(Colour colour) const {
  std::uint8_t luma[4] = {colour.y, colour.y, colour.y, colour.y};
  const ColourMatrix matrix(CodingOf(Colours::kVideo), CodingOf(_colours));
  matrix.Convert({2, 2, {luma, &colour.u, &colour.v}, {2, 1, 1}});
  return {luma[0], colour.u, colour.v};
}

void TestPattern::MakeNoise(int lines) {
  _noise_stride = _width - _width / 2 + kNoisePlacesX;
  _noise.resize(static_cast<std::size_t>(_noise_stride) * lines);
  std::minstd_rand random(1);  // the same noise on every board
  for (int y = 0; y < lines; ++y) {
    const int amplitude = kLeastNoise + (kMostNoise - kLeastNoise) * y / lines;
    for (int x = 0; x < _noise_stride; ++x) {
      const auto step =
          static_cast<int>((random() >> 8) % (2U * static_cast<unsigned>(amplitude) + 1));
      _noise[static_cast<std::size_t>(y) * static_cast<unsigned>(_noise_stride) +
             static_cast<unsigned>(x)] = Luma(kGrey - amplitude + step, _colours);
    }
  }
}

void TestPattern::DrawBackground() {
  const int sizes[3] = {_width * _height, _width / 2 * (_height / 2), _width / 2 * (_height / 2)};
  Picture background{.width = _width, .height = _height};
  for (int plane = 0; plane < 3; ++plane) {
    _planes[plane].assign(static_cast<std::size_t>(sizes[plane]), plane == 0 ? _black.y : kGrey);
    background.planes[plane] = _planes[plane].data();
    background.strides[plane] = plane == 0 ? _width : _width / 2;
  }
  for (int bar = 0; bar < 8; ++bar) {
    const int left = EvenPart(_width, bar, 8);
    const auto& [y, u, v] = kBars[bar];
    Fill(background,
         {left, _bars_top, EvenPart(_width, bar + 1, 8) - left, _bars_bottom - _bars_top},
         Show({y, u, v}));
  }
}

void TestPattern::Draw(std::uint32_t number, const Picture& picture, bool is_lit) const {
  // Whatever lies in the planes is written over whole. Only mending what moved would save a copy
  // that costs a fraction of a millisecond, at the price of trusting slots that others had in hand.
  for (int plane = 1; plane < 3; ++plane) {
    CopyPlane(_planes[plane].data(), _width / 2, _height / 2, picture.planes[plane],
              picture.strides[plane]);
  }
  CopyPlane(_planes[0].data(), _width, _bars_bottom, picture.planes[0], picture.strides[0]);
  DrawCells(number, picture);
  DrawTexture(number, picture);
  DrawNoise(number, picture);
  DrawMovers(number, picture);
  DrawDigits(number, picture);
  DrawLamp(picture, is_lit);  // last: the box and the line pass behind it
}

void TestPattern::Fill(const Picture& picture, Box box, Colour colour) const {
  const int left = std::clamp(box.left & ~1, 0, _width);
  const int right = std::clamp((box.left + box.width) & ~1, left, _width);
  const int top = std::clamp(box.top & ~1, 0, _height);
  const int bottom = std::clamp((box.top + box.height) & ~1, top, _height);
  const std::uint8_t levels[3] = {colour.y, colour.u, colour.v};
  for (int plane = 0; plane < 3; ++plane) {
    const int shift = plane == 0 ? 0 : 1;
    for (int y = top >> shift; y < bottom >> shift; ++y) {
      std::uint8_t* line = picture.planes[plane] + std::ptrdiff_t{y} * picture.strides[plane];
      std::memset(line + (left >> shift), levels[plane],
                  static_cast<std::size_t>((right - left) >> shift));
    }
  }
}

void TestPattern::DrawCells(std::uint32_t number, const Picture& picture) const {
  if (_width < kLeastCellsWidth || _height < kLeastCellsHeight) return;
  for (int row = 0; row < 2; ++row) {
    const std::uint64_t cells = row == 0 ? CellsOf(number) : ~CellsOf(number);
    const int top = row * _height / kCellRowsPerPicture;
    const int bottom = (row + 1) * _height / kCellRowsPerPicture;
    std::uint8_t* first = picture.planes[0] + std::ptrdiff_t{top} * picture.strides[0];
    for (int column = 0; column < kColumns; ++column) {
      const bool is_white = (cells >> (kColumns - 1 - column) & 1U) != 0;
      const int left = column * _width / kColumns;
      const int right = (column + 1) * _width / kColumns;
      std::memset(first + left, (is_white ? _white : _black).y,
                  static_cast<std::size_t>(right - left));
    }
    for (int y = top + 1; y < bottom; ++y) {
      std::memcpy(first + std::ptrdiff_t{y - top} * picture.strides[0], first,
                  static_cast<std::size_t>(_width));
    }
  }
}

void TestPattern::DrawTexture(std::uint32_t number, const Picture& picture) const {
  const int width = _width / 2;
  const int shift =
      static_cast<int>(std::uint64_t{number} * kTextureSpeed % static_cast<unsigned>(width));
  for (int y = _bars_bottom; y < _height; ++y) {
    const std::uint8_t* from = _texture.data() + std::ptrdiff_t{y - _bars_bottom} * width;
    std::uint8_t* to = picture.planes[0] + std::ptrdiff_t{y} * picture.strides[0];
    std::memcpy(to, from + shift, static_cast<std::size_t>(width - shift));
    std::memcpy(to + (width - shift), from, static_cast<std::size_t>(shift));
  }
}

void TestPattern::DrawNoise(std::uint32_t number, const Picture& picture) const {
  // A window on a larger field, elsewhere in each picture: new noise at the cost of a copy.
  const std::uint32_t place = Scatter(number);
  const auto x = static_cast<int>(place % kNoisePlacesX);
  const auto y = static_cast<int>((place >> 16) % kNoisePlacesY);
  const int left = _width / 2;
  for (int line = _bars_bottom; line < _height; ++line) {
    const std::uint8_t* from =
        _noise.data() + std::ptrdiff_t{line - _bars_bottom + y} * _noise_stride + x;
    std::memcpy(picture.planes[0] + std::ptrdiff_t{line} * picture.strides[0] + left, from,
                static_cast<std::size_t>(_width - left));
  }
}

void TestPattern::DrawMovers(std::uint32_t number, const Picture& picture) const {
  const int bars_height = _bars_bottom - _bars_top;
  const int side = std::max(2, EvenPart(_height, 1, 8));
  const int x = Bounce(number, std::max(2, _width / 160), _width - side);
  const int y = Bounce(number, std::max(2, _height / 120), bars_height - side);
  Fill(picture, {x, _bars_top + y, side, side}, _white);
  Fill(picture, {x + side / 4, _bars_top + y + side / 4, side / 2, side / 2}, _red);

  const int line_width = std::max(2, EvenPart(_width, 1, 160));
  const auto sweep = static_cast<int>(std::uint64_t{number} * static_cast<unsigned>(line_width) %
                                      static_cast<unsigned>(_width));
  Fill(picture, {sweep, _bars_top, line_width, bars_height}, _black);
}

void TestPattern::DrawDigits(std::uint32_t number, const Picture& picture) const {
  const std::string text = std::to_string(number);
  const int digits = std::max(6, static_cast<int>(text.size()));
  const int columns = 6 * digits + 1;  // a blank one around each digit
  // Dots are whole chroma samples; the plate takes half the width at most.
  const int dot = std::min(_width / 2 / columns, (_bars_bottom - _bars_top) / 2 / 9) & ~1;
  if (dot < 2) return;
  const int left = (_width - columns * dot) / 2 & ~1;
  const int top = (_bars_top + (_bars_bottom - _bars_top - 9 * dot) / 2) & ~1;
  Fill(picture, {left, top, columns * dot, 9 * dot}, _black);
  const int leading = digits - static_cast<int>(text.size());
  for (int place = 0; place < digits; ++place) {
    const int digit = place < leading ? 0 : text[static_cast<std::size_t>(place - leading)] - '0';
    for (int row = 0; row < 7; ++row) {
      for (int column = 0; column < 5; ++column) {
        if ((kDigits[digit][row] >> (4 - column) & 1) == 0) continue;
        Fill(picture, {left + (6 * place + 1 + column) * dot, top + (row + 1) * dot, dot, dot},
             _white);
      }
    }
  }
}

void TestPattern::DrawLamp(const Picture& picture, bool is_lit) const {
  const int side = LampSide(_width, _height);
  if (side == 0) return;
  const int left = EvenPart(_width, kLampColumn, 16) - side / 2;
  const int top = EvenPart(_height, kLampRow, 48) - side / 2;
  const int frame = std::max(2, EvenPart(side, 1, 8));
  Fill(picture, {left, top, side, side}, _grey);
  Fill(picture, {left + frame, top + frame, side - 2 * frame, side - 2 * frame},
       is_lit ? _white : _black);
}

}  // namespace tessel::rtos
