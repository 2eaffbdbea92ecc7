// The containers that captures are written into. The file's extension chooses one.
#pragma once

#include <span>
#include <string>

#include "MediaFormat.h"

namespace tessel::tool {

// The file names that stand for standard output, and for counting frames without keeping them. Both
// take the bytes of the frames as they are, and two streams as .mkv.
inline constexpr char kStandardOutput[] = "-";
inline constexpr char kNowhere[] = "/dev/null";

struct Container {
  const char* extension;
  const char* muxer;
  std::span<const MediaKind> kinds;  // that it takes
  bool is_bare;                      // the frames, one behind the other, and nothing else
  bool takes_both;                   // a video and a sound stream together
  const char* hint;                  // the extension as messages show it
};

// The container that `path` asks for and that takes all of `kinds` together, or null. Without
// `kinds`: whatever it takes.
const Container* FindContainer(const std::string& path, std::span<const MediaKind> kinds = {});
// The extensions of the containers that take all of `kinds`: ".mp4, .mkv or .h264". Empty: none.
std::string ContainersOf(std::span<const MediaKind> kinds = {});
// Whether the container takes raw pictures of that format, by its name on the real-time side or in
// FFmpeg. False with `error` naming the formats that it takes.
[[nodiscard]] bool TakesFormat(const Container& container, const std::string& pixel_format,
                               std::string& error);
// An AVPixelFormat, by such a name; AV_PIX_FMT_NONE for one that FFmpeg does not know.
int PixelFormat(std::string name);

// Whether it takes the planes of a picture instead of its bytes.
bool IsPlanar(const Container& container);
// Whether each frame becomes a file of its own. The pattern in the path, as "x-%03d.jpg", numbers
// them from 1 on; a path without one takes a single frame.
bool IsPictures(const Container& container);
bool IsPattern(const std::string& path);

}  // namespace tessel::tool
