// What `tessel capture` is asked to do, and whether that goes together.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ControlText.h"
#include "Source.h"

namespace tessel::tool {

// Ranges of the single values are checked where they are read.
struct CaptureOptions {
  std::vector<std::string> names;  // one, or one of video and one of sound; see FindCreatable()
  std::string output;              // as FindContainer() takes it
  std::optional<int> frames;       // of video, where there is any
  std::optional<double> seconds;   // of the stream's own time; triggered: of the clock

  std::optional<int> width;   // pixels
  std::optional<int> height;  // pixels
  std::string format;         // of raw pictures, a name of the real-time side
  std::optional<int> gop;     // frames
  std::string goptype;
  std::vector<ControlChange> changes;  // those for frame 0 hold from the start

  std::optional<int> rate;      // of sound, samples/s
  std::optional<int> channels;  //
  std::string profile;          // of AAC
  std::optional<int> bandwidth_hz;
  std::optional<int> sound_bit_rate_bps;

  std::string sensor = "test";
  std::string mic = "test";
  bool once = false;     // a media file is played once
  bool unpaced = false;  // as fast as it goes

  int key_every = 0;        // frames; 0: as the encoder likes
  std::vector<int> key_at;  // frames

  int trigger_every = 0;  // ms; 0: not by the clock
  bool trigger_on_stdin = false;

  std::string frame_log;  // JSON lines; "-" is standard output
  bool quiet = false;

  bool Triggers() const { return trigger_every > 0 || trigger_on_stdin; }
  // The first change of that value, or null.
  const ControlChange* FirstOf(const char* control) const;
};

// The source that an option for those kinds goes to, the first one that takes it; else the one that
// it is refused for. REQUIRES: there is a source.
const Source& Addressed(std::span<const Source> sources, unsigned kinds);

// False with `error`, naming the options, when they do not go together, whatever the class.
[[nodiscard]] bool Check(const CaptureOptions& options, std::string& error);
// The same, when they do not go with the classes.
[[nodiscard]] bool CheckFor(std::span<const Source> sources, const CaptureOptions& options,
                            std::string& error);

}  // namespace tessel::tool
