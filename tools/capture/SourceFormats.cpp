#include "SourceFormats.h"

#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

#include "tessel/IAacSource.h"
#include "tessel/IH264Source.h"
#include "tessel/IJpegSource.h"
#include "tessel/IYuvSource.h"

namespace tessel::tool {
namespace {

using api::streaming::common::AacMediaInfo;
using api::streaming::common::H264MediaInfo;

// SPS and PPS, each behind a start code.
std::vector<std::uint8_t> StreamHeader(const H264MediaInfo& info) {
  constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};
  std::vector<std::uint8_t> header;
  const std::pair<const void*, int> units[] = {{info.sps, info.spsSize}, {info.pps, info.ppsSize}};
  for (const auto& [unit, size_bytes] : units) {
    const auto* bytes = static_cast<const std::uint8_t*>(unit);
    header.insert(header.end(), std::begin(kStartCode), std::end(kStartCode));
    header.insert(header.end(), bytes, bytes + size_bytes);
  }
  return header;
}

// ISO/IEC 14496-3, AudioSpecificConfig: 5 bits object type, 4 sampling frequency index, 4 channel
// configuration, and three zeros: 1024 samples a frame, no core coder, no extension.
std::vector<std::uint8_t> AudioConfig(const AacMediaInfo& info) {
  const auto bits = static_cast<unsigned>(info.profile) << 11 |
                    static_cast<unsigned>(info.rateidx) << 7 |
                    static_cast<unsigned>(info.channels) << 3;
  return {static_cast<std::uint8_t>(bits >> 8), static_cast<std::uint8_t>(bits)};
}

}  // namespace

MediaFormat ReadH264(const CaptureSource& source) {
  const H264MediaInfo info = source.As<api::streaming::common::IH264>().GetH264MediaInfo();
  MediaFormat format;
  format.header = StreamHeader(info);
  format.width = info.width;
  format.height = info.height;
  return format;
}

MediaFormat ReadJpeg(const CaptureSource& source) {
  const auto info = source.As<api::streaming::IJpegSource>().GetJpegMediaInfo();
  MediaFormat format;
  format.width = info.width;
  format.height = info.height;
  return format;
}

MediaFormat ReadRaw(const CaptureSource& source) {
  const auto info = source.As<api::streaming::common::IYuvDevice>().GetYuvMediaInfo();
  MediaFormat format;
  format.width = info.width;
  format.height = info.height;
  format.pixel_format = info.format;
  return format;
}

MediaFormat ReadPcm(const CaptureSource& source) {
  const auto info = source.As<api::streaming::IPcmSource>().GetPcmMediaInfo();
  MediaFormat format;
  format.rate = info.sampleRate;
  format.channels = info.channels;
  return format;
}

MediaFormat ReadAac(const CaptureSource& source) {
  const AacMediaInfo info = source.As<api::streaming::IAacSource>().GetAacMediaInfo();
  MediaFormat format;
  format.header = AudioConfig(info);
  format.rate = info.rate;
  format.channels = info.channels;
  format.bit_rate_bps = info.bitrate;
  format.priming_samples = kAacFrame;  // the first frame only prepares the decoder for the second
  format.adts_bytes = info.adtsLength;
  return format;
}

}  // namespace tessel::tool
