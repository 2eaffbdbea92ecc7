// The ADTS header in front of each AAC frame (ISO/IEC 14496-3, 1.A.2.2).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tessel::rtos {

inline constexpr int kAdtsHeaderBytes = 7;   // without a check sum
inline constexpr int kAacLowComplexity = 2;  // among the audio object types of MPEG-4

// A sample rate and the number that stands for it in headers.
struct AacRate {
  int samples_per_second;
  int index;
};
// The rates from 8000 to 48000. At a higher one a block of 20 ms would be longer than a frame.
std::span<const AacRate> AacRates();

// For a frame of AAC LC with `payload_bytes` behind the header, of 1 or 2 channels.
std::array<std::uint8_t, kAdtsHeaderBytes> AdtsHeader(int rate_index, int channels,
                                                      std::size_t payload_bytes);

}  // namespace tessel::rtos
