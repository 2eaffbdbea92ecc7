// The real-time side's view of a session area.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "AdaptiveSpin.h"
#include "Doorbell.h"
#include "SessionLayout.h"

namespace tessel::link {

// One thread at a time, except where a function says otherwise.
class SessionProducer {
 public:
  // `area` must outlive the producer. `frame_doorbell` wakes the consumer, `slot_doorbell` the
  // producer. Null when the area cannot hold the header or a doorbell is not open.
  static std::unique_ptr<SessionProducer> Create(std::span<std::byte> area, Doorbell frame_doorbell,
                                                 Doorbell slot_doorbell);

  // Partitions the payload area into at most `most_slots` slots of at least `slot_bytes` each.
  // REQUIRES: no slot is reserved or published yet. False when fewer than two slots fit.
  [[nodiscard]] bool PartitionSlots(std::size_t slot_bytes, int most_slots);

  // The whole of a free slot; empty when all are in use. Returns the same slot until Publish().
  std::span<std::uint8_t> Reserve();
  // Sleeps until a slot is free. False when Interrupt() was called since the last Resume().
  bool WaitForRoom();
  // Publishes the first `size_bytes` of the reserved slot. REQUIRES: Reserve() returned a slot.
  void Publish(std::size_t size_bytes, std::uint32_t sequence, std::int64_t time_ns, bool is_key);
  // Count a capture that is not published: it had no slot or was too late (dropped), it would have
  // exceeded the frame rate (thinned), or no trigger had requested it (untriggered).
  void CountDropped() { Add(_header->dropped); }
  void CountThinned() { Add(_header->thinned); }
  void CountUntriggered() { Add(_header->untriggered); }
  SessionCounters Counters() const { return ReadCounters(*_header); }  // any thread

  void Interrupt();  // any thread: ends WaitForRoom() until Resume()
  void Resume() { _interrupted.store(false, std::memory_order_relaxed); }

 private:
  SessionProducer(std::span<std::byte> area, Doorbell frame_doorbell, Doorbell slot_doorbell);
  bool Collect();
  // A single writer needs no locked instruction.
  static void Add(std::atomic<std::uint64_t>& counter) {
    counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }

  std::span<std::byte> _area;
  SessionHeader* _header;
  Doorbell _frame_doorbell;
  Doorbell _slot_doorbell;
  std::atomic<bool> _interrupted{false};

  std::size_t _slot_bytes = 0;   // constant after PartitionSlots
  std::uint64_t _free = 0;       // one bit for each free slot; the consumer cannot write it
  std::uint64_t _all = 0;        // constant after PartitionSlots
  std::uint32_t _published = 0;  // the value of `head`; the consumer cannot write it
  int _reserved = -1;
  AdaptiveSpin _spin;
};

}  // namespace tessel::link
