// The head and the descriptors of a session, as a hostile producer would leave them; every byte
// handed out is touched.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "SessionConsumer.h"

namespace {

constexpr std::size_t kAreaBytes = tessel::link::kSessionHeaderBytes + 8192;

volatile std::size_t g_touched;  // so that no read is optimised away

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size_bytes) {
  using namespace tessel::link;
  // Of its own for each run: what lies behind its end is watched.
  struct Free {
    void operator()(std::byte* memory) const { operator delete(memory, std::align_val_t(64)); }
  };
  const std::unique_ptr<std::byte, Free> memory(
      static_cast<std::byte*>(operator new(kAreaBytes, std::align_val_t(64))));
  std::memset(memory.get(), 0, kAreaBytes);
  auto* header = reinterpret_cast<SessionHeader*>(memory.get());
  const auto consumer =
      SessionConsumer::Create({memory.get(), kAreaBytes}, Bell::Create(), Bell::Create());
  std::vector<std::uint16_t> held;
  while (size_bytes > sizeof(std::uint32_t)) {
    std::uint32_t head = 0;
    std::memcpy(&head, data, sizeof head);
    header->head.store(head);
    data += sizeof head;
    size_bytes -= sizeof head;
    const std::size_t ring_bytes = std::min(size_bytes, sizeof header->ring);
    std::memcpy(static_cast<void*>(header->ring), data, ring_bytes);
    data += ring_bytes;
    size_bytes -= ring_bytes;
    FrameDescriptor frame = {};
    while (consumer->Next(frame)) {
      for (std::size_t i = 0; i < frame.size; ++i) {
        g_touched = g_touched + static_cast<std::size_t>(consumer->Base()[frame.offset + i]);
      }
      if (std::find(held.begin(), held.end(), frame.slot) != held.end()) std::abort();
      held.push_back(frame.slot);
    }
    for (; held.size() > 5; held.pop_back()) consumer->GiveBack(held.back());
  }
  return 0;
}
