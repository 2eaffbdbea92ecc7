// The Linux side's view of a session area.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "AdaptiveSpin.h"
#include "Doorbell.h"
#include "SessionLayout.h"

namespace tessel::link {

// Next() and Wait(): one thread at a time. ReleaseSlot(), Interrupt(), Counters(): any thread.
class SessionConsumer {
 public:
  // `area` must outlive the consumer. `frame_doorbell` wakes the consumer, `slot_doorbell` the
  // producer. Null when the area cannot hold the header or a doorbell is not open.
  static std::unique_ptr<SessionConsumer> Create(std::span<std::byte> area, Doorbell frame_doorbell,
                                                 Doorbell slot_doorbell);

  // Reads the next frame. Its payload lies inside the area, in a slot that the client does not
  // hold. False when no frame is waiting. Descriptors that fail this check are counted and skipped;
  // one call reads at most a ring of them.
  [[nodiscard]] bool Next(FrameDescriptor& frame);
  // Sleeps until a frame may be ready. False when Interrupt() was called since the last Resume().
  bool Wait();
  // Frees the slot of a frame that Next() has returned. The producer may then overwrite it.
  void ReleaseSlot(std::uint16_t slot);

  // For unpaced streams: spins for as long as it takes to make a large picture, because waking a
  // sleeping consumer would delay the producer. Call before the first Wait().
  void SpinLonger() { _spin = AdaptiveSpin(200'000); }
  void Interrupt();  // ends Wait() until Resume()
  void Resume() { _interrupted.store(false, std::memory_order_relaxed); }
  bool IsInterrupted() const { return _interrupted.load(std::memory_order_acquire); }

  const std::byte* Base() const { return _area.data(); }
  SessionCounters Counters() const { return ReadCounters(*_header); }

 private:
  SessionConsumer(std::span<std::byte> area, Doorbell frame_doorbell, Doorbell slot_doorbell);
  bool IsSound(const FrameDescriptor& untrusted) const;
  void Refuse();

  std::span<std::byte> _area;
  SessionHeader* _header;
  Doorbell _frame_doorbell;
  Doorbell _slot_doorbell;
  std::atomic<bool> _interrupted{false};
  std::uint32_t _taken = 0;                           // frames read from the ring
  std::atomic<bool> _is_held[kRingDescriptors] = {};  // by slot
  AdaptiveSpin _spin;
};

}  // namespace tessel::link
