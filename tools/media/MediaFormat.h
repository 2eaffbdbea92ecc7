// What a stream consists of, as its writer, its meter and its summary have to know it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tessel::tool {

// What the frames of a stream are.
enum class MediaKind {
  kH264,
  kJpeg,
  kRaw,    // pictures as they are
  kBytes,  // buffers of the synthetic source, which carry no picture
  kPcm,
  kAac,
};
inline bool IsSound(MediaKind kind) { return kind == MediaKind::kPcm || kind == MediaKind::kAac; }

inline constexpr int kAacFrame = 1024;  // samples of each channel
inline constexpr int kPcmBytes = 2;     // of a sample

struct MediaFormat {
  MediaKind kind = MediaKind::kH264;
  // What a decoder has to know. H.264: SPS and PPS, each behind a start code; AAC: an
  // AudioSpecificConfig.
  std::vector<std::uint8_t> header;
  // Of video.
  int width = 0;              // pixels
  int height = 0;             // pixels
  int frames_per_second = 0;  // nominal; 0: the stream has no such rate
  std::string pixel_format;   // of raw video, as TakesFormat() takes it
  // Of sound.
  int rate = 0;             // samples/s of each channel
  int channels = 0;         //
  int bit_rate_bps = 0;     // announced; 0: not announced
  int priming_samples = 0;  // of each channel, before the first captured sample
  int adts_bytes = 0;  // header of each frame; containers with headers of their own leave it out
};

}  // namespace tessel::tool
