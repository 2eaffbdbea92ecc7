#include "AdtsHeader.h"

#include <algorithm>
#include <iterator>

namespace tessel::rtos {
namespace {

constexpr AacRate kRates[] = {{48000, 3}, {44100, 4}, {32000, 5},  {24000, 6}, {22050, 7},
                              {16000, 8}, {12000, 9}, {11025, 10}, {8000, 11}};

}  // namespace

std::span<const AacRate> AacRates() { return kRates; }

std::array<std::uint8_t, kAdtsHeaderBytes> AdtsHeader(int rate_index, int channels,
                                                      std::size_t payload_bytes) {
  const unsigned length = static_cast<unsigned>(payload_bytes) + kAdtsHeaderBytes;
  const unsigned profile = kAacLowComplexity - 1;
  const auto index = static_cast<unsigned>(rate_index);
  const auto layout = static_cast<unsigned>(channels);  // 1: mono, 2: stereo
  const unsigned bytes[kAdtsHeaderBytes] = {
      0xff,  // sync word, 12 bits
      0xf1,  // its end, MPEG-4, layer 0, no check sum
      profile << 6 | index << 2 | layout >> 2,
      (layout & 3) << 6 | length >> 11,  // neither copyrighted nor original
      length >> 3 & 0xff,
      (length & 7) << 5 | 0x1f,  // buffer fullness 0x7ff: variable rate
      0xfc,                      // its end, one raw data block
  };
  std::array<std::uint8_t, kAdtsHeaderBytes> header;
  std::transform(std::begin(bytes), std::end(bytes), header.begin(),
                 [](unsigned byte) { return static_cast<std::uint8_t>(byte); });
  return header;
}

}  // namespace tessel::rtos
