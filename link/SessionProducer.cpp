#include "SessionProducer.h"

#include <algorithm>
#include <bit>

namespace tessel::link {
namespace {

constexpr std::size_t kLargeSlotBytes = std::size_t{1} << 20;  // two of these fill a core's cache

}  // namespace

std::unique_ptr<SessionProducer> SessionProducer::Create(std::span<std::byte> area,
                                                         Doorbell frame_doorbell,
                                                         Doorbell slot_doorbell) {
  if (area.size() < kSessionHeaderBytes || !frame_doorbell.IsOpen() || !slot_doorbell.IsOpen()) {
    return nullptr;
  }
  return std::unique_ptr<SessionProducer>(
      new SessionProducer(area, std::move(frame_doorbell), std::move(slot_doorbell)));
}

SessionProducer::SessionProducer(std::span<std::byte> area, Doorbell frame_doorbell,
                                 Doorbell slot_doorbell)
    : _area(area),
      _header(reinterpret_cast<SessionHeader*>(area.data())),
      _frame_doorbell(std::move(frame_doorbell)),
      _slot_doorbell(std::move(slot_doorbell)) {}

bool SessionProducer::PartitionSlots(std::size_t slot_bytes, int most_slots) {
  constexpr std::size_t kPage = 4096;  // slots that share no page can be freed and protected singly
  const std::size_t payload_bytes = _area.size() - kSessionHeaderBytes;
  if (slot_bytes == 0 || slot_bytes > payload_bytes) return false;
  _slot_bytes = (slot_bytes + kPage - 1) / kPage * kPage;
  const auto fitting = payload_bytes / _slot_bytes;
  const auto slots = std::min({fitting, static_cast<std::size_t>(std::max(most_slots, 0)),
                               static_cast<std::size_t>(kMostSlots)});
  if (slots < 2) return false;
  _all = _free = (std::uint64_t{1} << slots) - 1;
  return true;
}

// Collects the slots that the consumer has released. The consumer may set any bit: the mask removes
// bits that have no slot, and releasing a free slot changes nothing.
bool SessionProducer::Collect() {
  // Pairs with the release in SessionConsumer::ReleaseSlot: its reads of the slot are over.
  _free |= _header->released.exchange(0, std::memory_order_acquire) & _all;
  return _free != 0;
}

std::span<std::uint8_t> SessionProducer::Reserve() {
  if (_reserved < 0) {
    // Large slots are reused as soon as they are released. Cycling through all of them would find
    // each one out of the cache, and writing a picture would take three times as long. For small
    // slots the additional exchange costs more than it saves.
    if (_slot_bytes >= kLargeSlotBytes) Collect();
    if (_free == 0 && !Collect()) return {};
    _reserved = std::countr_zero(_free);  // the lowest: used last, so still in the cache
    _free &= _free - 1;
  }
  std::byte* slot =
      _area.data() + kSessionHeaderBytes + static_cast<std::size_t>(_reserved) * _slot_bytes;
  return {reinterpret_cast<std::uint8_t*>(slot), _slot_bytes};
}

bool SessionProducer::WaitForRoom() {
  const auto has_room = [this] { return _header->released.load(std::memory_order_relaxed) != 0; };
  _spin.Begin();
  while (_reserved < 0 && _free == 0 && !_interrupted.load(std::memory_order_acquire)) {
    if (!_spin.Spin(has_room)) {
      const std::uint64_t before =
          _header->released.fetch_or(kProducerSleeps, std::memory_order_acq_rel);
      if ((before & _all) == 0) _slot_doorbell.Sleep();
    }
    Collect();
  }
  _spin.End();
  return !_interrupted.load(std::memory_order_acquire);
}

void SessionProducer::Publish(std::size_t size_bytes, std::uint32_t sequence, std::int64_t time_ns,
                              bool is_key) {
  FrameDescriptor& descriptor = _header->ring[_published % kRingDescriptors];
  descriptor.offset = kSessionHeaderBytes + static_cast<std::size_t>(_reserved) * _slot_bytes;
  descriptor.time_ns = time_ns;
  descriptor.size = static_cast<std::uint32_t>(size_bytes);
  descriptor.sequence = sequence;
  descriptor.slot = static_cast<std::uint16_t>(_reserved);
  descriptor.is_key = is_key ? 1 : 0;
  descriptor.reserved = 0;
  _reserved = -1;
  _published = (_published + 1) & kHeadMask;
  Add(_header->published);
  // Pairs with the acquire in SessionConsumer::Next: descriptor and payload are written.
  const std::uint32_t before = _header->head.exchange(_published, std::memory_order_acq_rel);
  if ((before & kConsumerSleeps) != 0) _frame_doorbell.Ring();
}

void SessionProducer::Interrupt() {
  _interrupted.store(true, std::memory_order_release);
  _slot_doorbell.Ring();
}

}  // namespace tessel::link
