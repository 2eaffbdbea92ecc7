#include "SessionConsumer.h"

#include <cstring>

namespace tessel::link {

std::unique_ptr<SessionConsumer> SessionConsumer::Create(std::span<std::byte> area,
                                                         Doorbell frame_doorbell,
                                                         Doorbell slot_doorbell) {
  if (area.size() < kSessionHeaderBytes || !frame_doorbell.IsOpen() || !slot_doorbell.IsOpen()) {
    return nullptr;
  }
  return std::unique_ptr<SessionConsumer>(
      new SessionConsumer(area, std::move(frame_doorbell), std::move(slot_doorbell)));
}

SessionConsumer::SessionConsumer(std::span<std::byte> area, Doorbell frame_doorbell,
                                 Doorbell slot_doorbell)
    : _area(area),
      _header(reinterpret_cast<SessionHeader*>(area.data())),
      _frame_doorbell(std::move(frame_doorbell)),
      _slot_doorbell(std::move(slot_doorbell)) {}

bool SessionConsumer::IsSound(const FrameDescriptor& untrusted) const {
  return untrusted.slot < kMostSlots && untrusted.offset >= kSessionHeaderBytes &&
         untrusted.time_ns >= 0 && untrusted.time_ns <= kMostTimeNs &&
         untrusted.offset <= _area.size() && untrusted.size <= _area.size() - untrusted.offset &&
         // Pairs with the release in ReleaseSlot: the last holder is done with the slot.
         !_is_held[untrusted.slot].load(std::memory_order_acquire);
}

void SessionConsumer::Refuse() { _header->refused.fetch_add(1, std::memory_order_relaxed); }

bool SessionConsumer::Next(FrameDescriptor& frame) {
  // Pairs with the release in SessionProducer::Publish.
  const std::uint32_t head = _header->head.load(std::memory_order_acquire) & kHeadMask;
  const std::uint32_t waiting = (head - _taken) & kHeadMask;
  if (waiting > kRingDescriptors) {  // a correct producer never gets this far ahead
    Refuse();
    _taken = head;
    return false;
  }
  for (std::uint32_t i = 0; i < waiting; ++i) {
    FrameDescriptor untrusted;
    std::memcpy(&untrusted, &_header->ring[_taken % kRingDescriptors], sizeof untrusted);
    _taken = (_taken + 1) & kHeadMask;
    if (!IsSound(untrusted)) {
      Refuse();
      continue;
    }
    _is_held[untrusted.slot].store(true, std::memory_order_relaxed);
    auto& delivered = _header->delivered;  // a single writer needs no locked instruction
    delivered.store(delivered.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    frame = untrusted;
    return true;
  }
  return false;
}

bool SessionConsumer::Wait() {
  const auto has_news = [this] {
    return (_header->head.load(std::memory_order_relaxed) & kHeadMask) != _taken;
  };
  _spin.Begin();
  while (!has_news() && !IsInterrupted()) {
    if (_spin.Spin(has_news)) break;
    std::uint32_t seen = _taken;
    // The exchange fails if a frame has been published since. It also fails if the bit is set
    // already; then sleeping is right as well.
    if (_header->head.compare_exchange_strong(seen, _taken | kConsumerSleeps,
                                              std::memory_order_acq_rel) ||
        seen == (_taken | kConsumerSleeps)) {
      _frame_doorbell.Sleep();
    }
  }
  _spin.End();
  return !IsInterrupted();
}

void SessionConsumer::ReleaseSlot(std::uint16_t slot) {
  _is_held[slot].store(false, std::memory_order_release);
  _header->returned.fetch_add(1, std::memory_order_relaxed);
  // Pairs with the acquire in SessionProducer::Collect.
  const std::uint64_t before =
      _header->released.fetch_or(std::uint64_t{1} << slot, std::memory_order_acq_rel);
  if ((before & kProducerSleeps) == 0) return;
  _header->released.fetch_and(~kProducerSleeps, std::memory_order_relaxed);
  _slot_doorbell.Ring();
}

void SessionConsumer::Interrupt() {
  _interrupted.store(true, std::memory_order_release);
  _frame_doorbell.Ring();
}

}  // namespace tessel::link
