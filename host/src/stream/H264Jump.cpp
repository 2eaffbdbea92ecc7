#include "H264Jump.h"

namespace quill::stream {
namespace {

bool IsSlice(std::uint8_t unit_header) {
  const int type = unit_header & 0x1f;
  return type >= 1 && type <= 5;
}

const std::uint8_t* Found(const std::uint8_t* frame, std::uint32_t size_bytes, std::uint32_t at,
                          std::uint32_t* payload_bytes) {
  if (payload_bytes != nullptr) *payload_bytes = size_bytes - at;
  return frame + at;
}

// Length of the start code at `at`, or 0.
std::uint32_t StartCode(const std::uint8_t* frame, std::uint32_t left_bytes) {
  if (left_bytes < 3 || frame[0] != 0 || frame[1] != 0) return 0;
  if (frame[2] == 1) return 3;
  return left_bytes >= 4 && frame[2] == 0 && frame[3] == 1 ? 4 : 0;
}

// The length field at `field`, big-endian.
std::uint32_t Length(const std::uint8_t* field) {
  return std::uint32_t{field[0]} << 24 | std::uint32_t{field[1]} << 16 |
         std::uint32_t{field[2]} << 8 | field[3];
}

bool IsLengthPrefixed(const std::uint8_t* frame, std::uint32_t size_bytes) {
  std::uint32_t at = 0;
  while (size_bytes - at > 4) {
    const std::uint32_t length = Length(frame + at);
    if (length == 0 || length > size_bytes - at - 4) return false;
    at += 4 + length;
  }
  return at == size_bytes;
}

}  // namespace

const std::uint8_t* JumpToSliceByteStream(const std::uint8_t* frame, std::uint32_t size_bytes,
                                          std::uint32_t* payload_bytes) {
  if (frame == nullptr) return nullptr;
  for (std::uint32_t at = 0; at < size_bytes; ++at) {
    const std::uint32_t code = StartCode(frame + at, size_bytes - at);
    if (code == 0) continue;
    if (at + code < size_bytes && IsSlice(frame[at + code])) {
      return Found(frame, size_bytes, at, payload_bytes);
    }
    at += code - 1;
  }
  return nullptr;
}

const std::uint8_t* JumpToSliceAvc(const std::uint8_t* frame, std::uint32_t size_bytes,
                                   std::uint32_t* payload_bytes) {
  if (frame == nullptr) return nullptr;
  for (std::uint32_t at = 0; size_bytes - at > 4;) {
    const std::uint8_t* field = frame + at;
    const std::uint32_t length = Length(field);
    if (length == 0 || length > size_bytes - at - 4) return nullptr;
    if (IsSlice(field[4])) return Found(frame, size_bytes, at, payload_bytes);
    at += 4 + length;
  }
  return nullptr;
}

const std::uint8_t* JumpToSlice(const std::uint8_t* frame, std::uint32_t size_bytes,
                                std::uint32_t* payload_bytes) {
  if (frame == nullptr) return nullptr;
  // 00 00 01 may also begin the length of a unit of 256 to 511 bytes: then the lengths lead exactly
  // to the end of the frame.
  return IsLengthPrefixed(frame, size_bytes)
             ? JumpToSliceAvc(frame, size_bytes, payload_bytes)
             : JumpToSliceByteStream(frame, size_bytes, payload_bytes);
}

}  // namespace quill::stream
