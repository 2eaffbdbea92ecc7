// What a stream consists of, as its writer, its meter and its summary have to know it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Kinds.h"

namespace tessel::tool {

inline constexpr int kAacFrame = 1024;  // samples of each channel
inline constexpr int kPcmBytes = 2;     // of a sample

struct MediaFormat {
  Kind kind = kH264;
  // What a decoder has to know. H.264: SPS and PPS, each behind a start code; AAC: an
  // AudioSpecificConfig.
  std::vector<std::uint8_t> header;
  // Of video.
  int width = 0;              // pixels
  int height = 0;             // pixels
  int frames_per_second = 0;  // nominal; 0: there is no such rate
  std::string pixel_format;   // raw video: as TakesFormat() takes it
  // Of sound.
  int rate = 0;             // samples/s of each channel
  int channels = 0;         //
  int bit_rate_bps = 0;     // announced; 0: nothing was
  int priming_samples = 0;  // of each channel, in front of what was captured
  int adts_bytes = 0;       // header of each frame, which a container that has its own goes without
};

}  // namespace tessel::tool
