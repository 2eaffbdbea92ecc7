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
  // `area` has to outlive this. `frame_doorbell` wakes this side, `slot_doorbell` the producer.
  // Null when the area cannot hold the header or a bell is not open.
  static std::unique_ptr<SessionConsumer> Create(std::span<std::byte> area, Doorbell frame_doorbell,
                                                 Doorbell slot_doorbell);

  // The next frame: checked, inside the area, in a slot that is not held. False when there is none.
  // Descriptors that fail their check are counted and passed over, at most a ring of them a call.
  [[nodiscard]] bool Next(FrameDescriptor& frame);
  // Sleeps until a frame may be there. False when Interrupt() was called since the last Resume().
  bool Wait();
  // Lets the producer use the slot of a frame that Next() returned again.
  void ReleaseSlot(std::uint16_t slot);

  // For streams without a clock: a look before sleeping as long as making a large picture takes,
  // since waking this side would hold the producer up. Before the first Wait().
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
