// Writes a stream, or a video and a sound stream together, into a file; pictures also into numbered
// files.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "MediaFormat.h"

struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

namespace tessel::tool {

struct Container;

// One thread at a time.
class MediaWriter {
 public:
  // A frame's bytes, shown or heard from `time_ns` on for `duration_ns`. The file starts at 0;
  // priming lies before that.
  struct TimedFrame {
    std::span<const std::uint8_t> bytes;
    bool is_key = true;
    std::int64_t time_ns = 0;
    std::int64_t duration_ns = 0;
  };

  // Creates the file, or empties it. Null with `error` when it cannot be written.
  static std::unique_ptr<MediaWriter> Open(const Container& container, const std::string& path,
                                           std::span<const MediaFormat> formats,
                                           std::string& error);
  // Finishes a file that is not finished yet, and ignores errors.
  ~MediaWriter();
  MediaWriter(const MediaWriter&) = delete;
  MediaWriter& operator=(const MediaWriter&) = delete;

  // Appends to the stream of that number among the formats. The stream's next frame ends this one
  // early if it begins earlier. Of two streams, a frame is held until the other stream has caught
  // up, or for ten seconds of the stream's time.
  [[nodiscard]] bool Write(std::size_t stream, const TimedFrame& frame, std::string& error);
  // Writes the index that players need, and closes the file.
  [[nodiscard]] bool Finish(std::string& error);

 private:
  struct StreamState {
    std::size_t skipped_bytes = 0;       // at the head of each frame
    std::vector<std::uint8_t> leading;   // written before the first frame if that lacks it
    std::int64_t last_time = INT64_MIN;  // of the last frame, in the stream's time base
  };

  MediaWriter() = default;
  bool Begin(const Container& container, const std::string& path,
             std::span<const MediaFormat> formats, std::string& error);
  bool AddStream(const Container& container, const MediaFormat& format);
  bool DescribeVideo(const Container& container, const MediaFormat& format, AVStream& stream);
  bool WrapPicture(std::span<const std::uint8_t> bytes);
  bool Check(int result, std::string& error) const;

  AVFormatContext* _format = nullptr;
  AVPacket* _packet = nullptr;
  AVFrame* _picture = nullptr;       // for containers that take planes instead of bytes
  std::vector<StreamState> _states;  // by stream
  bool _is_begun = false;            // the container's header is written
};

}  // namespace tessel::tool
