// The rate-control block: one record in shared memory by which a source steers its encoder and the
// encoder reports back. A change needs no message: the real-time side reads the record once for
// each frame.
//
//      0 ┌──────────────────────────────┐
//        │ rates, limits, counters      │
//    604 │ extra area: tag, room, used  │
//    616 │ extra area: bytes …          │ 128 of them inside the fixed part,
//    744 ├──────────────────────────────┤
//        │ … extra area goes on         │ `extra_size` more after it
//        └──────────────────────────────┘
//
// Two programs on two operating systems map it, so the layout never changes and has no version.
// Every field is one aligned 32-bit word that is read and written as a whole, in relaxed order,
// because no field depends on another. Zeroed memory is a valid block without any request.
// Little-endian, like both operating systems of the chip.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace quill::stream {

struct VbrcBlock {
  using Word = std::atomic<std::int32_t>;

  // Each comment: offset, unit. The real-time side writes the words marked "rtos", Linux the
  // others.
  Word reserved_0;                        // 0, zero
  Word bitrate;                           // 4, bits/s as measured; rtos
  Word bitrate_max;                       // 8, bits/s
  Word bitrate_min;                       // 12, bits/s
  Word reserved_16;                       // 16, zero
  Word framerate;                         // 20, frames/s
  Word framerate_max;                     // 24, frames/s
  Word framerate_min;                     // 28, frames/s
  Word reserved_32;                       // 32, zero
  Word qp;                                // 36, quantiser; 0: rate control decides
  Word qp_max;                            // 40
  Word qp_min;                            // 44
  Word qp_reported;                       // 48, quantiser in use; rtos
  Word reserved_52;                       // 52, zero
  Word keyframe_req;                      // 56, counts requests
  Word reserved_60;                       // 60, zero
  Word bitrate_target;                    // 64, bits/s
  Word trigger_req;                       // 68, counts requests
  Word trigger_served;                    // 72, requests served; rtos, host at Open, Close
  Word reserved_76[36];                   // 76, zero
  Word frame_count;                       // 220, finished frames; one writer a chain
  Word reserved_224[95];                  // 224, zero
  std::atomic<std::uint32_t> extra_user;  // 604, base::Hash of the owner's name
  Word extra_max;                         // 608, bytes that writers may use
  Word extra_len;                         // 612, bytes in use, terminating NUL included
  std::uint8_t extra[128];                // 616
};

inline constexpr std::size_t kVbrcBlockBytes = 744;

static_assert(std::is_standard_layout_v<VbrcBlock>, "mapped by two programs");
static_assert(VbrcBlock::Word::is_always_lock_free && sizeof(VbrcBlock::Word) == 4 &&
                  sizeof(std::atomic<std::uint32_t>) == 4,
              "an atomic word is a plain word");
static_assert(sizeof(VbrcBlock) == kVbrcBlockBytes, "the allocation has this size");
static_assert(offsetof(VbrcBlock, reserved_0) == 0, "first");
static_assert(offsetof(VbrcBlock, bitrate) == 4, "the measured rate is read here");
static_assert(offsetof(VbrcBlock, bitrate_max) == 8, "the ceiling comes before the floor");
static_assert(offsetof(VbrcBlock, bitrate_min) == 12, "");
static_assert(offsetof(VbrcBlock, reserved_16) == 16, "");
static_assert(offsetof(VbrcBlock, framerate) == 20, "the rate comes before its ceiling");
static_assert(offsetof(VbrcBlock, framerate_max) == 24, "");
static_assert(offsetof(VbrcBlock, framerate_min) == 28, "");
static_assert(offsetof(VbrcBlock, reserved_32) == 32, "");
static_assert(offsetof(VbrcBlock, qp) == 36, "the requested QP, not the reported one");
static_assert(offsetof(VbrcBlock, qp_max) == 40, "the ceiling comes before the floor");
static_assert(offsetof(VbrcBlock, qp_min) == 44, "");
static_assert(offsetof(VbrcBlock, qp_reported) == 48, "the reported QP, not the requested one");
static_assert(offsetof(VbrcBlock, reserved_52) == 52, "");
static_assert(offsetof(VbrcBlock, keyframe_req) == 56, "the encoder counts requests here");
static_assert(offsetof(VbrcBlock, reserved_60) == 60, "");
static_assert(offsetof(VbrcBlock, bitrate_target) == 64, "the encoder reads the target here");
static_assert(offsetof(VbrcBlock, trigger_req) == 68, "the trigger counts requests here");
static_assert(offsetof(VbrcBlock, trigger_served) == 72, "the trigger goes on from here");
static_assert(offsetof(VbrcBlock, reserved_76) == 76, "");
static_assert(offsetof(VbrcBlock, frame_count) == 220, "a snapshot waits on this word");
static_assert(offsetof(VbrcBlock, reserved_224) == 224, "");
static_assert(offsetof(VbrcBlock, extra_user) == 604, "the tag guards the extra area");
static_assert(offsetof(VbrcBlock, extra_max) == 608, "");
static_assert(offsetof(VbrcBlock, extra_len) == 612, "");
static_assert(offsetof(VbrcBlock, extra) == 616, "the extra area starts inside the record");

// The extra area, which continues after the record. Either operating system may write it at any
// time, so access its bytes with std::atomic_ref.
inline std::uint8_t* ExtraArea(VbrcBlock& block) {
  return reinterpret_cast<std::uint8_t*>(&block) + offsetof(VbrcBlock, extra);
}

// The owner's name of an extra area that contains the URL of the next picture, as NUL-terminated
// text. In such a block the sink advances `frame_count` once the file of a picture is complete; the
// encoder leaves the word alone.
inline constexpr char kUrlOwner[] = "UrlSimple";

// Zeroes the fixed part and stores the defaults of a new source. `extra_size` is the number of
// bytes after the fixed part, which this function leaves alone.
inline void InitVbrcBlock(VbrcBlock& block, int extra_size) {
  std::memset(static_cast<void*>(&block), 0, kVbrcBlockBytes);
  constexpr auto kRelaxed = std::memory_order_relaxed;
  block.bitrate_target.store(1000000, kRelaxed);
  block.bitrate_max.store(2000000, kRelaxed);
  block.bitrate_min.store(50000, kRelaxed);
  block.framerate.store(30, kRelaxed);
  block.framerate_max.store(30, kRelaxed);
  block.framerate_min.store(1, kRelaxed);
  block.qp_max.store(50, kRelaxed);
  block.qp_min.store(10, kRelaxed);
  block.extra_max.store(extra_size, kRelaxed);
}

}  // namespace quill::stream
