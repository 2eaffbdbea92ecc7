// A session area: how frames of one stream cross from the real-time side to Linux.
//
//      0 ┌────────────────────────────┐
//        │ producer line              │ real-time side writes, Linux adds its "asleep" bit
//     64 │ consumer line              │ Linux writes, the real-time side collects
//    128 │ producer counters          │ real-time side writes
//    192 │ reserved                   │
//   1024 │ 64 descriptors of 32 bytes │ real-time side writes
//   4096 ├────────────────────────────┤
//        │ payload: slots, laid out   │
//        │ by the producer alone      │
//        └────────────────────────────┘
//
// The producer writes a frame into a free slot, describes it in the ring, and announces it by one
// exchange of `head`. The consumer reads the frame in place. When the last holder drops the frame,
// the consumer sets the slot's bit in `released`; the producer collects all bits at once. There are
// at most 63 slots, so the ring of 64 descriptors cannot overflow, and `released` is the only word
// of the consumer that the producer reads.
//
// Sleeping. A side that has nothing to do sets the top bit of the word that its peer changes next
// (`head` for the consumer, `released` for the producer) and sleeps on its eventfd. The peer's
// exchange returns that bit, so the peer rings the eventfd. The bit shares its word with the news:
// a wake-up cannot be lost between the check and the sleep.
//
// A process that dies leaves the words as they are. None of them is a lock, and the survivor learns
// of the death from the socket. Zeroed memory is an empty ring whose slots all are the producer's.
//
// Version 1. Raise it when a field moves or changes its meaning. The `hello` message carries it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tessel::link {

inline constexpr int kSessionVersion = 1;
inline constexpr std::uint32_t kRingDescriptors = 64;
inline constexpr int kMostSlots = 63;
// The greatest valid time stamp, 73 years. Sums and differences of two valid ones do not overflow.
inline constexpr std::int64_t kMostTimeNs = std::int64_t{1} << 61;

// `head`: number of frames published, modulo 2^31. Its top bit is set while the consumer sleeps.
inline constexpr std::uint32_t kConsumerSleeps = 1U << 31;
inline constexpr std::uint32_t kHeadMask = kConsumerSleeps - 1;
// `released`: one bit for each slot. Its top bit is set while the producer sleeps.
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

// Each counter is written by one side and only grows.
struct SessionHeader {
  alignas(64) std::atomic<std::uint32_t> head;       // 0
  alignas(64) std::atomic<std::uint64_t> released;   // 64
  std::atomic<std::uint64_t> delivered;              // 72, frames that the consumer has read
  std::atomic<std::uint64_t> returned;               // 80, of these, released since
  std::atomic<std::uint64_t> refused;                // 88, descriptors that failed their check
  alignas(64) std::atomic<std::uint64_t> published;  // 128, frames
  std::atomic<std::uint64_t> dropped;                // 136, captures: no free slot, or too late
  std::atomic<std::uint64_t> thinned;                // 144, captures skipped for the frame rate
  std::atomic<std::uint64_t> untriggered;            // 152, captures that no trigger requested
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

// A copy of the counters. They are read one after another, not at one instant.
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
  // Reads `returned` before `delivered`. Both only grow, so the difference is never negative.
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
