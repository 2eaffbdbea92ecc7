#include "quill/ostream_string.h"

#include <charconv>

namespace quill::base {

ostream_string& ostream_string::operator<<(const char* text) {
  if (text != nullptr) _text += text;
  return *this;
}

ostream_string& ostream_string::operator<<(long long number) {
  char digits[24];  // a 64-bit number has at most 20
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  Write({digits, static_cast<std::size_t>(end - digits)});
  return *this;
}

ostream_string& ostream_string::operator<<(const void* pointer) {
  char digits[24] = {'0', 'x'};
  const auto address = reinterpret_cast<std::uintptr_t>(pointer);
  const auto end = std::to_chars(digits + 2, digits + sizeof digits, address, 16).ptr;
  Write({digits, static_cast<std::size_t>(end - digits)});
  return *this;
}

std::string HandleText(std::uint64_t handle) {
  return ToString(reinterpret_cast<const void*>(handle));
}

std::uint64_t ReadHandle(const char* text) {
  if (text == nullptr) return 0;
  std::string_view digits = text;
  if (digits.starts_with("0x")) digits.remove_prefix(2);
  std::uint64_t handle = 0;
  const char* end = digits.data() + digits.size();
  const auto [rest, failure] = std::from_chars(digits.data(), end, handle, 16);
  return failure == std::errc() && rest == end ? handle : 0;
}

}  // namespace quill::base
