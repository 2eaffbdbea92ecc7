// The memory layouts of raw pictures. See doc/raw-pictures.md. Any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Picture.h"

namespace tessel::rtos {

struct PixelFormat {
  const char* name;      // in fmt=, in any case
  int library_format;    // AVPixelFormat
  bool v_first = false;  // the V plane lies in front of the U plane
};

// "420V50": planar 4:2:0, what encoders take and what is delivered unless another is asked for.
const PixelFormat& Planar420();
// Null when there is none of that name.
const PixelFormat* FindPixelFormat(std::string_view name);
// All names, separated by ", ".
std::string PixelFormatNames();
// FFmpeg's name for the format; null where FFmpeg has no such order of planes.
const char* LibraryName(const PixelFormat& format);
// Whether it is planar 4:2:0, which elements draw and encode.
bool IsPlanar420(const PixelFormat& format);

// A picture whose planes lie in `memory`, one behind the other without gaps; formats may have fewer
// than three planes. With null as `memory` only the strides are set. REQUIRES: even sides.
Picture PackedPicture(const PixelFormat& format, int width, int height, std::uint8_t* memory);
// Bytes of a packed picture.
std::size_t PackedBytes(const PixelFormat& format, int width, int height);
// Copies line by line between pictures of one format and size.
void CopyPicture(const PixelFormat& format, const Picture& from, const Picture& to);

// Memory for one picture: planes aligned to 64 bytes, lines of planar 4:2:0 a multiple of 64 and 32
// bytes apart, of other formats as far apart as in a picture whose width is a multiple of 64.
class PictureBuffer {
 public:
  PictureBuffer() = default;
  PictureBuffer(const PixelFormat& format, int width, int height);
  const Picture& Get() const { return _picture; }
  explicit operator bool() const { return _memory != nullptr; }

 private:
  struct Free {
    void operator()(std::uint8_t* memory) const;
  };
  std::unique_ptr<std::uint8_t[], Free> _memory;
  Picture _picture;
};

}  // namespace tessel::rtos
