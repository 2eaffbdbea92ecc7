// Finding the picture data in an H.264 frame, past parameter sets and other units (the units' types
// are those of ITU-T H.264, table 7-1: 1 to 5 are slices).
#pragma once

#include <cstdint>

#include "tessel/H264MediaInfo.h"

namespace quill::stream {

// Contracts as of JumpToData. Any thread.
const std::uint8_t* JumpToSlice(const std::uint8_t* frame, std::uint32_t size_bytes,
                                std::uint32_t* payload_bytes);
const std::uint8_t* JumpToSliceByteStream(const std::uint8_t* frame, std::uint32_t size_bytes,
                                          std::uint32_t* payload_bytes);
const std::uint8_t* JumpToSliceAvc(const std::uint8_t* frame, std::uint32_t size_bytes,
                                   std::uint32_t* payload_bytes);

}  // namespace quill::stream
