#include "quill/ostream_string.h"

#include <charconv>
#include <cstdint>

namespace quill::base {

ostream& ostream::operator<<(const char* text) {
  if (text != nullptr) Write(text);
  return *this;
}

ostream& ostream::operator<<(const std::string& text) {
  Write(text);
  return *this;
}

ostream& ostream::operator<<(long long number) {
  char digits[24];  // 20 are the most that 64 bits need
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  Write({digits, static_cast<std::size_t>(end - digits)});
  return *this;
}

ostream& ostream::operator<<(const void* pointer) {
  char digits[24] = {'0', 'x'};
  const auto address = reinterpret_cast<std::uintptr_t>(pointer);
  const auto end = std::to_chars(digits + 2, digits + sizeof digits, address, 16).ptr;
  Write({digits, static_cast<std::size_t>(end - digits)});
  return *this;
}

}  // namespace quill::base
