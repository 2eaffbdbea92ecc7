// The description of an H.264 stream: requested before Open(), as the encoder reports it
// afterwards.
#pragma once

#include <cstdint>
#include <string>

namespace tessel::api::streaming::common {

// Finds the first slice in a frame of `size_bytes` bytes, after parameter sets and other units.
// The result points into `frame`: at the slice's start code (byte stream) or length field
// (length-prefixed). `payload_bytes`, if not null, receives the number of bytes from there to the
// end of the frame. Null when the frame contains no slice.
using JumpToData = const std::uint8_t* (*)(const std::uint8_t* frame, std::uint32_t size_bytes,
                                           std::uint32_t* payload_bytes);

// The stream header is start code, SPS, start code, PPS. The pointers belong to the host's media
// description and are valid while the stream is open.
struct H264MediaInfo {
  std::int32_t width;          // pixels
  std::int32_t height;         // pixels
  std::int32_t gop;            // frames from one key frame to the next
  std::string goptype;         // picture types from the key frame on, the last one repeated
  void* sps;                   // SPS unit without its start code
  std::int32_t spsSize;        // bytes
  void* pps;                   // PPS unit without its start code
  std::int32_t ppsSize;        // bytes
  std::int32_t spsOffset;      // of the SPS in the stream header, bytes
  std::int32_t spsLength;      // equal to spsSize
  std::int32_t ppsOffset;      // of the PPS in the stream header, bytes
  std::int32_t ppsLength;      // equal to ppsSize
  std::int32_t headerSize;     // ppsOffset + ppsLength + 4
  std::int32_t startCodeSize;  // bytes, always 4
  std::int32_t reserved[17];   // zero
  const char* pack;            // how units are packed: "byte-stream"
  JumpToData cbJumpToData;     // either packing, detected from the first bytes
  JumpToData cbJumpToDataBs;   // start codes (ITU-T H.264 annex B)
  JumpToData cbJumpToDataAvc;  // 4-byte lengths (ISO/IEC 14496-15)
};

}  // namespace tessel::api::streaming::common
