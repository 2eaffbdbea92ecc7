// The files that a capture writes: the media file, and the log of its frames.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "CaptureOptions.h"
#include "Containers.h"
#include "FrameLog.h"
#include "MediaWriter.h"
#include "Track.h"

namespace tessel::tool {

// Every `error` names the file. Client's thread.
class CaptureFile {
 public:
  // Borrows both for its life.
  CaptureFile(const CaptureOptions& options, const Container& container)
      : _options(options), _container(container) {}

  // "standard output", or the path.
  std::string Name() const;
  // Opens the frame log. False with `error` when it cannot be written, or when the file does not
  // take one of the formats.
  [[nodiscard]] bool Prepare(const std::vector<MediaFormat>& formats, std::string& error);
  // Creates the file, or empties it.
  [[nodiscard]] bool Begin(const std::vector<MediaFormat>& formats, std::string& error);
  bool IsBegun() const { return _writer != nullptr; }
  // Writes a frame and its line of the log, which names the source if `is_named`. REQUIRES:
  // IsBegun().
  [[nodiscard]] bool Write(Track& track, const Track::frame_t& frame, std::int64_t end_ns,
                           bool is_named, std::string& error);
  // Finishes the file if it is begun. False with `error` when that fails, unless Write() has failed
  // before.
  [[nodiscard]] bool Finish(std::string& error);
  // Whether the file could not be written or finished.
  bool IsBroken() const { return _is_broken; }
  // Removes the file, but no device and no link.
  void Remove();

 private:
  const CaptureOptions& _options;
  const Container& _container;
  FrameLog _log;
  std::unique_ptr<MediaWriter> _writer;  // null before Begin() and after Finish()
  bool _is_broken = false;
};

}  // namespace tessel::tool
