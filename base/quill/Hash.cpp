#include "quill/Hash.h"

#include <cstdint>

namespace quill::base {

unsigned Hash(const char* text) {
  if (text == nullptr) return 0;
  std::uint32_t hash = 2166136261U;
  for (const char* at = text; *at != '\0'; ++at) {
    auto byte = static_cast<unsigned char>(*at);
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<unsigned char>(byte + 32);
    hash = (hash ^ byte) * 16777619U;
  }
  return hash;
}

}  // namespace quill::base
