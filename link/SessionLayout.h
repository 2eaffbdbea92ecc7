// A session area: how frames of one stream cross from the real-time side to Linux.
//
//      0 ┌────────────────────────────┐
//        │ producer line              │ real-time side writes, Linux adds its "asleep" bit
//     64 │ consumer line              │ Linux writes, the real-time side collects
//    128 │ producer counters          │ real-time side writes
//    192 │ reserved                   │
//   1024 │ 64 descriptors of 32 bytes │ real-time side writes
//   4096 ├────────────────────────────┤
//        │ payload: slots, cut by the │
//        │ producer alone             │
//        └────────────────────────────┘
//
// A frame is written into a free slot, described in the ring, and announced by one exchange of
// `head`. The consumer reads it in place and, when its last holder lets go, sets the slot's bit in
// `released`, which the producer collects whole. As at most 63 slots exist, the ring of 64 cannot
// overflow, and the producer needs no word from the consumer but that one.
//
// Sleeping. Whoever finds nothing sets the top bit of the word that the other side changes next
// (`head` for the consumer, `released` for the producer) and sleeps on its eventfd; the other
// side's exchange shows the bit, and it rings. The bit and the news share one word, so no news can
// slip between the look and the sleep.
//
// A peer that dies leaves the words as they are: nothing here is a lock, and the survivor learns of
// the death from the socket. Zeroed memory is an empty ring with all slots at the producer.
//
// Version 1. Raised when a field moves or changes its meaning; both sides are told it at "hello".
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tessel::link {

inline constexpr int kSessionVersion = 1;
inline constexpr std::uint32_t kRingDescriptors = 64;
inline constexpr int kMostSlots = 63;
// Of a time stamp: 73 years. Later ones are noise, and sums and differences of these fit.
inline constexpr std::int64_t kMostTimeNs = std::int64_t{1} << 61;

// `head`: number of frames published, modulo 2^31, and whether the consumer sleeps.
inline constexpr std::uint32_t kConsumerSleeps = 1U << 31;
inline constexpr std::uint32_t kHeadMask = kConsumerSleeps - 1;
// `released`: a bit a slot, and whether the producer sleeps.
inline constexpr std::uint64_t kProducerSleeps = std::uint64_t{1} << 63;

struct FrameDescriptor {
  std::uint64_t offset;    // 0, of the payload from the start of the session area
  std::int64_t time_ns;    // 8, CLOCK_MONOTONIC at capture, 0 to kMostTimeNs
  std::uint32_t size;      // 16, bytes
  std::uint32_t sequence;  // 20, counts captured units, dropped ones included
  std::uint16_t slot;      // 24
  std::uint16_t is_key;    // 26, 0 or 1
  std::uint32_t reserved;  // 28, zero
};
static_assert(sizeof(FrameDescriptor) == 32, "two in a cache line, none across two");
static_assert(std::is_trivially_copyable_v<FrameDescriptor>, "copied out once, then checked");
static_assert(offsetof(FrameDescriptor, time_ns) == 8, "");
static_assert(offsetof(FrameDescriptor, size) == 16, "");
static_assert(offsetof(FrameDescriptor, sequence) == 20, "");
static_assert(offsetof(FrameDescriptor, slot) == 24, "");
static_assert(offsetof(FrameDescriptor, is_key) == 26, "");

// Each counter has one writer side and only grows.
struct SessionHeader {
  alignas(64) std::atomic<std::uint32_t> head;       // 0
  alignas(64) std::atomic<std::uint64_t> released;   // 64
  std::atomic<std::uint64_t> delivered;              // 72, frames handed to the Linux side
  std::atomic<std::uint64_t> returned;               // 80, of these, no longer held
  std::atomic<std::uint64_t> refused;                // 88, descriptors that failed their check
  alignas(64) std::atomic<std::uint64_t> published;  // 128, frames
  std::atomic<std::uint64_t> dropped;                // 136, without a free slot, or too late
  std::atomic<std::uint64_t> thinned;                // 144, passed over to keep to a frame rate
  std::atomic<std::uint64_t> untriggered;            // 152, passed over as nothing asked for them
  std::uint8_t reserved[1024 - 160];                 // 160, zero
  FrameDescriptor ring[kRingDescriptors];            // 1024
};
inline constexpr std::size_t kSessionHeaderBytes = 4096;
static_assert(std::is_standard_layout_v<SessionHeader>, "mapped by two programs");
static_assert(std::atomic<std::uint64_t>::is_always_lock_free &&
                  std::atomic<std::uint32_t>::is_always_lock_free,
              "an atomic word is a plain word");
static_assert(offsetof(SessionHeader, released) == 64, "the two sides write different lines");
static_assert(offsetof(SessionHeader, delivered) == 72, "");
static_assert(offsetof(SessionHeader, returned) == 80, "");
static_assert(offsetof(SessionHeader, refused) == 88, "");
static_assert(offsetof(SessionHeader, published) == 128, "");
static_assert(offsetof(SessionHeader, dropped) == 136, "");
static_assert(offsetof(SessionHeader, thinned) == 144, "");
static_assert(offsetof(SessionHeader, untriggered) == 152, "");
static_assert(offsetof(SessionHeader, ring) == 1024, "");
static_assert(sizeof(SessionHeader) <= kSessionHeaderBytes, "the payload starts on a page");

// What the counters say, read one by one.
struct SessionCounters {
  std::uint64_t published = 0;
  std::uint64_t delivered = 0;
  std::uint64_t dropped = 0;
  std::uint64_t thinned = 0;
  std::uint64_t untriggered = 0;
  std::uint64_t refused = 0;
  std::uint64_t held = 0;
};
inline SessionCounters ReadCounters(const SessionHeader& header) {
  const auto read = [](const std::atomic<std::uint64_t>& word) {
    return word.load(std::memory_order_relaxed);
  };
  SessionCounters counters;
  // `returned` first: both only grow, so the difference cannot fall below zero.
  const std::uint64_t returned = read(header.returned);
  counters.delivered = read(header.delivered);
  counters.held = counters.delivered - returned;
  counters.published = read(header.published);
  counters.dropped = read(header.dropped);
  counters.thinned = read(header.thinned);
  counters.untriggered = read(header.untriggered);
  counters.refused = read(header.refused);
  return counters;
}

}  // namespace tessel::link
