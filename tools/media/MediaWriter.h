// Writes a stream, or a video and a sound stream together, into a file; pictures into numbered
// ones, too.
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
  // A frame's bytes, to be shown or heard at `time_ns` for `duration_ns`, the start of the file
  // being 0. Priming lies before it.
  struct Unit {
    std::span<const std::uint8_t> bytes;
    bool is_key = true;
    std::int64_t time_ns = 0;
    std::int64_t duration_ns = 0;
  };

  // Creates the file, or empties it. Null with `error` when it cannot be written.
  static std::unique_ptr<MediaWriter> Open(const Container& container, const std::string& path,
                                           std::span<const MediaFormat> formats,
                                           std::string& error);
  // Finishes a file that was not finished, as well as it can be.
  ~MediaWriter();
  MediaWriter(const MediaWriter&) = delete;
  MediaWriter& operator=(const MediaWriter&) = delete;

  // Appends to the stream of that number among the formats. A later unit of the stream ends it as
  // well. Of two streams each unit waits until the other one has caught up, or ten seconds of the
  // stream's time.
  [[nodiscard]] bool Write(std::size_t stream, const Unit& unit, std::string& error);
  // Writes what a player needs to find its way, and closes the file.
  [[nodiscard]] bool Finish(std::string& error);

 private:
  struct StreamState {
    std::size_t skipped_bytes = 0;       // at the head of each unit
    std::vector<std::uint8_t> leading;   // goes in front of the first one, where that lacks it
    std::int64_t last_time = INT64_MIN;  // of the last one, in units of the stream
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
  AVFrame* _picture = nullptr;       // where the container wants planes instead of bytes
  std::vector<StreamState> _states;  // by stream
  bool _is_begun = false;            // the container's head is written
};

}  // namespace tessel::tool
