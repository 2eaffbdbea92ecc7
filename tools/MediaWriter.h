// Writes encoded video into a file. The file's extension chooses the container.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tessel/frame_t.h"

struct AVFormatContext;
struct AVPacket;

namespace tessel::tool {

// The file name that stands for standard output, which takes the raw byte stream.
inline constexpr char kStandardOutput[] = "-";

struct Container;
// The container that `path` asks for, or null, with `error` naming the extensions there are.
const Container* FindContainer(const std::string& path, std::string& error);

struct VideoFormat {
  int width = 0;                     // pixels
  int height = 0;                    // pixels
  int frames_per_second = 0;         // nominal
  std::vector<std::uint8_t> header;  // SPS and PPS, each behind a start code
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

  // Appends a frame of the byte stream, to be shown at `time_ns` for `duration_ns`, the start of
  // the file being 0. A later frame ends it as well.
  [[nodiscard]] bool Write(const frame_t& frame, std::int64_t time_ns, std::int64_t duration_ns,
                           std::string& error);
  // Writes what a player needs to find its way, and closes the file.
  [[nodiscard]] bool Finish(std::string& error);

 private:
  MediaWriter() = default;
  bool Begin(const Container& container, const std::string& path, const VideoFormat& format,
             std::string& error);
  bool AddStream(const VideoFormat& format);
  bool Check(int result, std::string& error) const;

  AVFormatContext* _format = nullptr;
  AVPacket* _packet = nullptr;
  std::vector<std::uint8_t> _leading;  // goes in front of the first frame, where that lacks it
  std::int64_t _last_time = -1;        // of the last frame, in units of the stream
  bool _is_begun = false;              // the container's head is written
};

}  // namespace tessel::tool
