// The options of `tessel capture`.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "CaptureSource.h"
#include "ControlText.h"
#include "InputOptions.h"

namespace tessel::tool {

// Each value is checked where it is read.
struct CaptureOptions {
  std::vector<std::string> names;  // one, or one of video and one of sound
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

  InputOptions inputs;

  int key_every = 0;        // frames; 0: the encoder decides
  std::vector<int> key_at;  // frames

  int trigger_every = 0;  // ms; 0: not by the clock
  bool trigger_on_stdin = false;

  std::string frame_log;  // JSON lines; "-" is standard output
  bool quiet = false;

  bool HasTriggers() const { return trigger_every > 0 || trigger_on_stdin; }
  // The first change of that value, or null.
  const ControlChange* FirstOf(const char* control) const;
};

// An option that only some kinds of source take.
struct OptionRow {
  const char* name;
  const char* lack;  // what the error says of a source that does not take it
  // Its value, which borrows from the options; none when it is not given.
  std::optional<SettingValue> (*given)(const CaptureOptions& options);
};
std::span<const OptionRow> OptionRows();

}  // namespace tessel::tool
