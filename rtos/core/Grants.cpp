#include "Grants.h"

#include "quill/ostream_string.h"

namespace tessel::rtos {

VbrcBlock* GrantedMemory::Block(const char* text, std::string& error) const {
  // An address below the base wraps around and lies in no block.
  const std::uint64_t offset = quill::base::ReadHandle(text) - _linux_base;
  auto place = _grants.blocks.upper_bound(offset);
  if (place != _grants.blocks.begin()) {
    const auto [begin, size_bytes] = *--place;
    const std::uint64_t inside = offset - begin;
    const bool fits = inside <= size_bytes && sizeof(VbrcBlock) <= size_bytes - inside;
    const auto memory = _window.Area(offset, sizeof(VbrcBlock));
    if (fits && offset % alignof(VbrcBlock) == 0 && !memory.empty()) {
      return reinterpret_cast<VbrcBlock*>(memory.data());
    }
  }
  error = std::string("vbrc=") + text + " lies in no block handed out";
  return nullptr;
}

std::unique_ptr<link::SessionProducer> GrantedMemory::TakeSession(const char* name,
                                                                  std::string& error) {
  auto grant = _grants.sessions.extract(name);
  if (!grant.empty()) {
    Grants::Session& session = grant.mapped();
    auto producer = link::SessionProducer::Create(session.area,
                                                  link::Doorbell(std::move(session.frame_doorbell)),
                                                  link::Doorbell(std::move(session.slot_doorbell)));
    if (producer != nullptr) return producer;
  }
  error = std::string("session_name=") + name + " is no session handed out";
  return nullptr;
}

}  // namespace tessel::rtos
