// `tessel capture`: a source into a playable file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Controls.h"

namespace tessel::tool {

// Ranges of the single values are checked where they are read.
struct CaptureOptions {
  std::string name;    // as FindCreatable() takes it
  std::string output;  // as FindContainer() takes it
  std::optional<int> frames;
  std::optional<double> seconds;  // of the stream's own time

  std::optional<int> width;   // pixels
  std::optional<int> height;  // pixels
  std::optional<int> gop;     // frames
  std::string goptype;
  std::vector<ControlChange> changes;  // those for frame 0 hold from the start

  std::string sensor = "test";
  bool once = false;     // a media file is played once
  bool unpaced = false;  // as fast as it goes

  int key_every = 0;        // frames; 0: as the encoder likes
  std::vector<int> key_at;  // frames

  std::string frame_log;  // JSON lines; "-" is standard output
  bool quiet = false;
};

// False with `error`, naming the options, when they do not go together.
[[nodiscard]] bool Check(const CaptureOptions& options, std::string& error);

// Captures until the frames or seconds asked for are there, the input ends, or the user interrupts.
// REQUIRES: Check(options), and that it is called once, before any other thread is started. The
// exit code.
int Capture(const CaptureOptions& options);

}  // namespace tessel::tool
