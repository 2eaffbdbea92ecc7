// The words that the two sides of a session share, as a hostile peer would leave them: the
// head and the descriptors for the consumer, `released` for the producer.
#include <cstring>
#include <memory>
#include <new>
#include <set>
#include <thread>
#include <vector>

#include "Input.h"
#include "SessionConsumer.h"
#include "SessionProducer.h"

namespace tessel::fuzz {
namespace {

using link::Doorbell;
using link::SessionHeader;

// Memory of its own for each run: what lies behind its end is watched.
class Area {
 public:
  explicit Area(std::size_t size_bytes)
      : _memory(static_cast<std::byte*>(operator new(size_bytes, std::align_val_t(64)))),
        _size_bytes(size_bytes) {
    std::memset(_memory.get(), 0, size_bytes);
  }
  std::span<std::byte> Bytes() const { return {_memory.get(), _size_bytes}; }
  SessionHeader* Header() const { return reinterpret_cast<SessionHeader*>(_memory.get()); }

 private:
  struct Free {
    void operator()(std::byte* memory) const { operator delete(memory, std::align_val_t(64)); }
  };
  std::unique_ptr<std::byte, Free> _memory;
  std::size_t _size_bytes;
};

}  // namespace

int FuzzRing(const std::uint8_t* data, std::size_t size_bytes) {
  Input input(data, size_bytes);
  const Area area(link::kSessionHeaderBytes + 8192);
  const auto consumer =
      link::SessionConsumer::Create(area.Bytes(), Doorbell::Create(), Doorbell::Create());
  Require(link::SessionConsumer::Create(area.Bytes().first(64), Doorbell::Create(), Doorbell()) ==
              nullptr,
          "a session needs room and bells");
  std::vector<std::uint16_t> held;
  while (!input.IsEmpty()) {
    const auto head = input.Take<std::uint32_t>();
    area.Header()->head.store(head);
    const auto ring = input.Bytes(sizeof(SessionHeader::ring));
    if (!ring.empty()) {
      std::memcpy(static_cast<void*>(area.Header()->ring), ring.data(), ring.size());
    }
    if (head % 3 == 0) area.Header()->released.store(link::kProducerSleeps);
    const auto judged = [&consumer] {
      return consumer->Counters().delivered + consumer->Counters().refused;
    };
    const std::uint64_t judged_before = judged();
    link::FrameDescriptor frame = {};
    while (consumer->Next(frame)) {
      const std::size_t area_bytes = area.Bytes().size();
      Require(frame.offset >= link::kSessionHeaderBytes && frame.offset <= area_bytes &&
                  frame.size <= area_bytes - frame.offset,
              "a frame lies behind the header and inside the area");
      Require(frame.slot < link::kMostSlots, "a slot is one of a session");
      Require(frame.time_ns >= 0 && frame.time_ns <= link::kMostTimeNs, "a time is one of a clock");
      Touch({consumer->Base() + frame.offset, frame.size});
      Require(std::find(held.begin(), held.end(), frame.slot) == held.end(), "a slot is held once");
      held.push_back(frame.slot);
    }
    Require(judged() - judged_before <= link::kRingDescriptors, "each descriptor is read once");
    for (; held.size() > 5; held.pop_back()) consumer->ReleaseSlot(held.back());
    Require(consumer->Counters().held == held.size(), "the frames held are counted");
    // Else it would wait for ever; now and then it sleeps first.
    std::jthread late;
    if (head % 16 == 5) late = std::jthread([&] { consumer->Interrupt(); });
    if (head % 16 != 5) consumer->Interrupt();
    consumer->Wait();
    consumer->Interrupt();
    Require(!consumer->Wait(), "an interrupted consumer waits no longer");
    consumer->Resume();
  }
  return 0;
}

int FuzzReleased(const std::uint8_t* data, std::size_t size_bytes) {
  Input input(data, size_bytes);
  const Area area(link::kSessionHeaderBytes + std::size_t{16} * 4096);
  const Doorbell room = Doorbell::Create();
  const auto producer =
      link::SessionProducer::Create(area.Bytes(), Doorbell::Create(), Doorbell(room.Duplicate()));
  const auto slot_bytes = input.Take<std::uint32_t>();
  const int most_slots = input.Take<std::uint8_t>() - 8;
  if (!producer->PartitionSlots(slot_bytes, most_slots)) return 0;
  std::set<std::size_t> out;  // published and not released
  std::uint32_t number = 0;   // of the next frame
  while (!input.IsEmpty()) {
    const auto word = input.Take<std::uint64_t>();
    area.Header()->released.store(word);
    area.Header()->head.store(static_cast<std::uint32_t>(word));
    const auto slot = producer->Reserve();
    if (slot.empty()) {
      producer->CountDropped();
      // Each session has slots 0 and 1. Without one of them it would wait for ever.
      const bool has_room = (input.Take<std::uint64_t>() & 1) != 0;
      area.Header()->released.store(has_room ? 3 : 0);
      if (!has_room) producer->Interrupt();
      Require(producer->WaitForRoom() == has_room, "a wait ends with room or an interruption");
      producer->Resume();
      if (has_room) out.erase(out.begin(), out.upper_bound(1));
      continue;
    }
    Require(slot.size() >= slot_bytes, "a slot has the room asked for");
    std::memset(slot.data(), 0xff, slot.size());
    producer->Publish(slot.size(), number, 0, false);
    const link::FrameDescriptor& made = area.Header()->ring[number++ % link::kRingDescriptors];
    for (std::size_t i = 0; i < static_cast<std::size_t>(link::kMostSlots); ++i) {
      if ((word >> i & 1) != 0) out.erase(i);
    }
    Require(made.slot < most_slots && out.insert(made.slot).second, "a slot in use is not reused");
  }
  return 0;
}

}  // namespace tessel::fuzz
