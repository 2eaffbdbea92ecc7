#include "PatternMarks.h"

#include <cstddef>
#include <cstdlib>

namespace tessel::rtos {
namespace {

// A cell and its twin lie at least 219 apart when drawn. Coding and scaling leave more than this;
// two parts of an ordinary picture seldom differ by as much, and never 34 times in a row.
constexpr int kLeastContrast = 64;
constexpr int kGrey = 128;

int MeanOf(const std::uint8_t* luma, int stride, int left, int top, int right, int bottom) {
  std::int64_t sum = 0;
  for (int y = top; y < bottom; ++y) {
    const std::uint8_t* line = luma + std::ptrdiff_t{y} * stride;
    for (int x = left; x < right; ++x) sum += line[x];
  }
  return static_cast<int>(sum / (std::int64_t{right - left} * (bottom - top)));
}

// The mean over the inner half of the cell in `column` and `row`, where neighbours do not bleed in.
int CellLevel(const std::uint8_t* luma, int stride, int width, int height, int column, int row) {
  const int left = (4 * column + 1) * width / (4 * kColumns);
  const int right = std::max(left + 1, (4 * column + 3) * width / (4 * kColumns));
  const int top = (4 * row + 1) * height / (4 * kCellRowsPerPicture);
  const int bottom = std::max(top + 1, (4 * row + 3) * height / (4 * kCellRowsPerPicture));
  return MeanOf(luma, stride, left, top, right, bottom);
}

}  // namespace

bool ReadFrameNumber(const std::uint8_t* luma, int stride, int width, int height,
                     std::uint32_t& number) {
  if (width < kLeastCellsWidth || height < kLeastCellsHeight) return false;
  std::uint64_t cells = 0;
  for (int column = 0; column < kColumns; ++column) {
    const int contrast = CellLevel(luma, stride, width, height, column, 0) -
                         CellLevel(luma, stride, width, height, column, 1);
    if (std::abs(contrast) < kLeastContrast) return false;
    cells = cells << 1 | (contrast > 0 ? 1U : 0U);
  }
  const auto shown = static_cast<std::uint32_t>(cells >> 1);
  if (cells != CellsOf(shown)) return false;
  number = shown;
  return true;
}

bool IsLampLit(const std::uint8_t* luma, int stride, int width, int height) {
  const int side = LampSide(width, height);
  if (side == 0) return false;
  const int x = EvenPart(width, kLampColumn, 16);
  const int y = EvenPart(height, kLampRow, 48);
  const int reach = side / 4;
  return MeanOf(luma, stride, x - reach, y - reach, x + reach, y + reach) > kGrey;
}

}  // namespace tessel::rtos
