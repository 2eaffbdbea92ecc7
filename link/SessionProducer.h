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

// One thread, but for Interrupt().
class SessionProducer {
 public:
  // `area` has to outlive this. `frame_doorbell` wakes the consumer, `slot_doorbell` this side.
  // Null when the area cannot even hold the header or a bell is not open.
  static std::unique_ptr<SessionProducer> Create(std::span<std::byte> area, Doorbell frame_doorbell,
                                                 Doorbell slot_doorbell);

  // Cuts the payload area into slots of at least `slot_bytes`, at most `most_slots` of them.
  // REQUIRES: no slot is reserved or published yet. False when not even two fit.
  [[nodiscard]] bool PartitionSlots(std::size_t slot_bytes, int most_slots);

  // A free slot, whole; empty when all are in use. Until Publish() the same slot is returned again.
  std::span<std::uint8_t> Reserve();
  // Sleeps until a slot is free. False when Interrupt() was called since the last Resume().
  bool WaitForRoom();
  // Hands the reserved slot's first `size_bytes` over. REQUIRES: Reserve() returned a slot.
  void Publish(std::size_t size_bytes, std::uint32_t sequence, std::int64_t time_ns, bool is_key);
  // A capture that came to nothing: there was no slot or it was too late, it would have exceeded
  // the frame rate, or nothing had asked for it.
  void CountDropped() { Add(_header->dropped); }
  void CountThinned() { Add(_header->thinned); }
  void CountUntriggered() { Add(_header->untriggered); }
  SessionCounters Counters() const { return ReadCounters(*_header); }  // any thread

  void Interrupt();  // any thread: ends WaitForRoom() until Resume()
  void Resume() { _interrupted.store(false, std::memory_order_relaxed); }

 private:
  SessionProducer(std::span<std::byte> area, Doorbell frame_doorbell, Doorbell slot_doorbell);
  bool Collect();
  static void Add(std::atomic<std::uint64_t>& counter) {  // one writer: no locked instruction
    counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }

  std::span<std::byte> _area;
  SessionHeader* _header;
  Doorbell _frame_doorbell;
  Doorbell _slot_doorbell;
  std::atomic<bool> _interrupted{false};

  std::size_t _slot_bytes = 0;   // constant after PartitionSlots
  std::uint64_t _free = 0;       // a bit a slot that is ours; private, so nobody can forge it
  std::uint64_t _all = 0;        // constant after PartitionSlots
  std::uint32_t _published = 0;  // what `head` says, from memory of our own
  int _reserved = -1;
  AdaptiveSpin _spin;
};

}  // namespace tessel::link
