#include "quill/Packet.h"

namespace quill::stream {

const std::uint8_t* Packet::Data() const { return _data; }
std::uint32_t Packet::Size() const { return _size_bytes; }
bool Packet::IsKey() const { return _is_key; }

}  // namespace quill::stream
