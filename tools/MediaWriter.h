// Writes video into a file, or into numbered ones. The file's extension chooses the container.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tessel/frame_t.h"

#include "Kinds.h"

struct AVFormatContext;
struct AVFrame;
struct AVPacket;

namespace tessel::tool {

// The file names that stand for standard output, and for nothing, where frames are only counted.
// Both take the bytes of the frames as they are.
inline constexpr char kStandardOutput[] = "-";
inline constexpr char kNowhere[] = "/dev/null";

struct Container;
// The container that `path` asks for, for any of `kinds`, or null.
const Container* FindContainer(const std::string& path, unsigned kinds);
// The extensions that FindContainer() knows for these, as they are told: ".mp4, .mkv or .h264".
std::string ContainersOf(unsigned kinds);
// Whether raw pictures of that format, by its name on the real-time side or in FFmpeg, go into the
// container. False with `error` naming the formats that do.
[[nodiscard]] bool TakesFormat(const Container& container, const std::string& pixel_format,
                               std::string& error);
// Whether each frame becomes a file of its own. Their names are numbered by the pattern in the
// path, as "x-%03d.jpg", from 1 on; a path without one takes a single frame.
bool IsPictures(const Container& container);
bool IsPattern(const std::string& path);

struct VideoFormat {
  Kind kind = kH264;
  int width = 0;                     // pixels
  int height = 0;                    // pixels
  int frames_per_second = 0;         // nominal; 0: there is no such rate
  std::string pixel_format;          // raw video: as TakesFormat() takes it
  std::vector<std::uint8_t> header;  // H.264: SPS and PPS, each behind a start code
};

// One thread at a time.
class MediaWriter {
 public:
  using frame_t = api::streaming::common::frame_t;

  // Creates the file, or empties it. Null with `error` when it cannot be written.
  static std::unique_ptr<MediaWriter> Open(const Container& container, const std::string& path,
                                           const VideoFormat& format, std::string& error);
  // Finishes a file that was not finished, as well as it can be.
  ~MediaWriter();
  MediaWriter(const MediaWriter&) = delete;
  MediaWriter& operator=(const MediaWriter&) = delete;

  // Appends a frame, to be shown at `time_ns` for `duration_ns`, the start of
  // the file being 0. A later frame ends it as well.
  [[nodiscard]] bool Write(const frame_t& frame, std::int64_t time_ns, std::int64_t duration_ns,
                           std::string& error);
  // Writes what a player needs to find its way, and closes the file.
  [[nodiscard]] bool Finish(std::string& error);

 private:
  MediaWriter() = default;
  bool Begin(const Container& container, const std::string& path, const VideoFormat& format,
             std::string& error);
  bool AddStream(const Container& container, const VideoFormat& format);
  bool WrapPicture(const frame_t& frame);
  bool Check(int result, std::string& error) const;

  AVFormatContext* _format = nullptr;
  AVPacket* _packet = nullptr;
  AVFrame* _picture = nullptr;         // where the container wants planes instead of bytes
  std::vector<std::uint8_t> _leading;  // goes in front of the first frame, where that lacks it
  std::int64_t _last_time = -1;        // of the last frame, in units of the stream
  bool _is_begun = false;              // the container's head is written
};

}  // namespace tessel::tool
