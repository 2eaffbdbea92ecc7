// A stream as a track of the file: when its frames are shown or heard, and what is written of it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CaptureStream.h"
#include "MediaFormat.h"
#include "SoundMeter.h"

namespace tessel::tool {

class MediaWriter;

// Client's thread.
class Track {
 public:
  using frame_t = api::streaming::common::frame_t;

  Track(CaptureSource source, std::size_t number, std::shared_ptr<FrameInbox> inbox)
      : stream(std::move(source), number, inbox), _number(number), _inbox(std::move(inbox)) {}

  // Call once the stream is open. `is_metered`: the levels of sound are measured.
  void Begin(bool is_metered);
  const MediaFormat& Media() const { return _format; }

  // When the content of a frame with that time stamp was captured.
  std::int64_t CapturedNs(std::int64_t stamp_ns) const { return stamp_ns + _priming_ns; }
  // Where time 0 of the file is: CLOCK_MONOTONIC, ns.
  void SetOrigin(std::int64_t origin_ns) { _origin_ns = origin_ns; }
  // Replaces a wrong time stamp and counts it: one that lies more than 10 minutes ahead of both the
  // clock and the latest stamp, or, on the first frame, behind the clock. Call first for each
  // frame.
  void CorrectStamp(frame_t& frame);
  // Whether a frame begins at the end of the file or later; of video, up to half a frame earlier.
  bool IsBehind(const frame_t& frame, std::int64_t end_ns) const;
  // Whether sound is written up to `end_ns`. Always false for video: its next frame shows it.
  bool Reaches(std::int64_t end_ns) const;
  // Writes a frame; of sound, the part before `end_ns`. False with `error` when the file
  // cannot be written.
  [[nodiscard]] bool Write(const frame_t& frame, std::int64_t end_ns, MediaWriter& writer,
                           std::string& error);

  std::uint64_t Frames() const { return _frames; }
  std::int64_t EndNs() const { return _end_ns; }  // of what is written, from the origin on
  double Seconds() const;                         // of what is written
  std::vector<SoundMeter::Level> RecentLevels(SoundMeter::Clock::time_point now);
  // "250 frames, 10.00 s, …", for the summary.
  std::string Summary() const;

  CaptureStream stream;
  bool is_done = false;  // it has all its frames, or gets no more

 private:
  std::int64_t PlaceSound(const frame_t& frame) const;
  std::int64_t SoundNs(std::int64_t samples) const;
  std::int64_t SamplesIn(const frame_t& frame) const;
  std::int64_t FrameNs() const;
  bool WriteVideo(const frame_t& frame, MediaWriter& writer, std::string& error);
  bool WriteSound(const frame_t& frame, std::int64_t end_ns, MediaWriter& writer,
                  std::string& error);
  bool WriteSilence(std::int64_t until_ns, MediaWriter& writer, std::string& error);

  const std::size_t _number;
  const std::shared_ptr<FrameInbox> _inbox;
  // Constant after Begin.
  MediaFormat _format;
  std::int64_t _priming_ns = 0;
  std::unique_ptr<SoundMeter> _meter;

  std::int64_t _latest_stamp_ns = 0;  // CLOCK_MONOTONIC; 0 before the first frame
  std::uint64_t _corrected = 0;       // frames whose time stamps were wrong
  std::int64_t _origin_ns = 0;
  std::uint64_t _frames = 0;
  std::uint64_t _key_frames = 0;
  std::uint64_t _bytes = 0;
  std::optional<std::int64_t> _start_ns;  // of the first frame, from the origin on
  std::int64_t _last_ns = 0;              // of the last frame
  std::int64_t _end_ns = 0;
  std::int64_t _missing_ns = 0;  // of sound, in the gaps
  // Sound: the time of a frame is that of the anchor plus the samples since.
  std::int64_t _anchor_ns = 0;
  std::int64_t _samples = 0;  // of each channel, since the anchor
};

}  // namespace tessel::tool
