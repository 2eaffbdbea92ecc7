#include "PixelFormats.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace tessel::rtos {
namespace {

constexpr std::size_t kAlignment = 64;

constexpr PixelFormat kFormats[] = {
    {"420V50", AV_PIX_FMT_YUV420P},  {"yuv420p", AV_PIX_FMT_YUV420P},
    {"i420", AV_PIX_FMT_YUV420P},    {"yv12", AV_PIX_FMT_YUV420P, true},
    {"nv12", AV_PIX_FMT_NV12},       {"nv21", AV_PIX_FMT_NV21},
    {"yuv422p", AV_PIX_FMT_YUV422P}, {"yuyv422", AV_PIX_FMT_YUYV422},
    {"yuyv", AV_PIX_FMT_YUYV422},    {"yuy2", AV_PIX_FMT_YUYV422},
    {"uyvy422", AV_PIX_FMT_UYVY422}, {"uyvy", AV_PIX_FMT_UYVY422},
    {"yvyu422", AV_PIX_FMT_YVYU422}, {"yvyu", AV_PIX_FMT_YVYU422},
    {"yuv444p", AV_PIX_FMT_YUV444P}, {"gray", AV_PIX_FMT_GRAY8},
    {"gray8", AV_PIX_FMT_GRAY8},     {"y800", AV_PIX_FMT_GRAY8},
    {"rgb24", AV_PIX_FMT_RGB24},     {"bgr24", AV_PIX_FMT_BGR24},
    {"rgba", AV_PIX_FMT_RGBA},       {"bgra", AV_PIX_FMT_BGRA},
};

AVPixelFormat LibraryFormat(const PixelFormat& format) {
  return static_cast<AVPixelFormat>(format.library_format);
}

bool IsSameLetter(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

struct Sizes {
  int line_bytes[4] = {};
  std::size_t plane_bytes[4] = {};
};

Sizes SizesOf(const PixelFormat& format, int width, int height) {
  Sizes sizes;
  std::ptrdiff_t strides[4] = {};
  av_image_fill_linesizes(sizes.line_bytes, LibraryFormat(format), width);
  std::copy_n(sizes.line_bytes, 4, strides);
  av_image_fill_plane_sizes(sizes.plane_bytes, LibraryFormat(format), height, strides);
  return sizes;
}

std::size_t RoundUp(std::size_t number, std::size_t step) {
  return (number + step - 1) / step * step;
}

// A picture whose lines are `line_width` wide, each plane at a multiple of `alignment` from
// `memory` on; null: only the strides. Returns the bytes up to the last plane's end.
std::size_t LayOut(const PixelFormat& format, int line_width, std::size_t alignment,
                   std::uint8_t* memory, Picture& picture) {
  const Sizes sizes = SizesOf(format, line_width, picture.height);
  std::size_t end = 0;
  for (int plane = 0; plane < 3 && sizes.plane_bytes[plane] != 0; ++plane) {
    const std::size_t begin = RoundUp(end, alignment);
    if (memory != nullptr) picture.planes[plane] = memory + begin;
    picture.strides[plane] = sizes.line_bytes[plane];
    end = begin + sizes.plane_bytes[plane];
  }
  if (format.v_first) std::swap(picture.planes[1], picture.planes[2]);
  return end;
}

}  // namespace

const PixelFormat& Planar420() { return kFormats[0]; }

const PixelFormat* FindPixelFormat(std::string_view name) {
  for (const PixelFormat& format : kFormats) {
    const std::string_view known = format.name;
    if (std::equal(name.begin(), name.end(), known.begin(), known.end(), IsSameLetter)) {
      return &format;
    }
  }
  return nullptr;
}

std::string PixelFormatNames() {
  std::string names;
  for (const PixelFormat& format : kFormats) {
    names.append(names.empty() ? "" : ", ").append(format.name);
  }
  return names;
}

const char* LibraryName(const PixelFormat& format) {
  return format.v_first ? nullptr : av_get_pix_fmt_name(LibraryFormat(format));
}

bool IsPlanar420(const PixelFormat& format) { return format.library_format == AV_PIX_FMT_YUV420P; }

Picture PackedPicture(const PixelFormat& format, int width, int height, std::uint8_t* memory) {
  Picture picture{.width = width, .height = height};
  LayOut(format, width, 1, memory, picture);
  return picture;
}

std::size_t PackedBytes(const PixelFormat& format, int width, int height) {
  Picture picture{.width = width, .height = height};
  return LayOut(format, width, 1, nullptr, picture);
}

void CopyPicture(const PixelFormat& format, const Picture& from, const Picture& to) {
  const Sizes sizes = SizesOf(format, to.width, to.height);
  for (int plane = 0; plane < 3 && sizes.plane_bytes[plane] != 0; ++plane) {
    av_image_copy_plane(to.planes[plane], to.strides[plane], from.planes[plane],
                        from.strides[plane], sizes.line_bytes[plane],
                        static_cast<int>(sizes.plane_bytes[plane]) / sizes.line_bytes[plane]);
  }
}

PictureBuffer::PictureBuffer(const PixelFormat& format, int width, int height)
    : _picture{.width = width, .height = height} {
  const int line_width = static_cast<int>(RoundUp(static_cast<std::size_t>(width), kAlignment));
  // What is written past a line's end stays inside, also behind the last line.
  const std::size_t bytes = LayOut(format, line_width, kAlignment, nullptr, _picture) + kAlignment;
  _memory.reset(new (std::align_val_t{kAlignment}) std::uint8_t[bytes]());
  LayOut(format, line_width, kAlignment, _memory.get(), _picture);
}

void PictureBuffer::Free::operator()(std::uint8_t* memory) const {
  ::operator delete[](memory, std::align_val_t{kAlignment});
}

}  // namespace tessel::rtos
