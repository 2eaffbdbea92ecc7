// The containers that captures are written into. The file's extension chooses one.
#pragma once

#include <string>

#include "Kinds.h"

namespace tessel::tool {

// The file names that stand for standard output, and for nothing, where frames are only counted.
// Both take the bytes of the frames as they are, and two streams as .mkv.
inline constexpr char kStandardOutput[] = "-";
inline constexpr char kNowhere[] = "/dev/null";

struct Container {
  const char* extension;
  const char* muxer;
  unsigned kinds;    // that go into it
  bool is_bare;      // nothing but the frames, one behind the other
  bool takes_both;   // a video and a sound stream together
  const char* hint;  // the extension as it is told
};

// The container that `path` asks for, and all of `kinds` go into together, or null. Without
// `kinds`: whatever goes into it.
const Container* FindContainer(const std::string& path, unsigned kinds = 0);
// The extensions that FindContainer() knows for these, as they are told: ".mp4, .mkv or .h264".
std::string ContainersOf(unsigned kinds = 0);
// Whether raw pictures of that format, by its name on the real-time side or in FFmpeg, go into the
// container. False with `error` naming the formats that do.
[[nodiscard]] bool TakesFormat(const Container& container, const std::string& pixel_format,
                               std::string& error);
// An AVPixelFormat, by such a name; AV_PIX_FMT_NONE for one that FFmpeg does not know.
int PixelFormat(std::string name);

// Wants the planes of a picture, not its bytes.
bool IsPlanar(const Container& container);
// Whether each frame becomes a file of its own. Their names are numbered by the pattern in the
// path, as "x-%03d.jpg", from 1 on; a path without one takes a single frame.
bool IsPictures(const Container& container);
bool IsPattern(const std::string& path);

}  // namespace tessel::tool
