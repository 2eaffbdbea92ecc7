// Takes the bytes of a fuzzer's input apart, from the front. Past the end everything is zero or
// empty.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

namespace tessel::fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size_bytes) : _left(data, size_bytes) {}

  bool IsEmpty() const { return _left.empty(); }
  std::size_t Size() const { return _left.size(); }
  std::span<const std::uint8_t> Bytes(std::size_t most) {
    const auto taken = _left.first(std::min(most, _left.size()));
    _left = _left.subspan(taken.size());
    return taken;
  }
  template <typename Number>
  Number Take() {
    Number number = 0;
    const auto bytes = Bytes(sizeof number);
    if (!bytes.empty()) std::memcpy(&number, bytes.data(), bytes.size());
    return number;
  }
  // The text up to the next line break, which is taken too.
  std::string Line() {
    const auto end = std::find(_left.begin(), _left.end(), std::uint8_t{'\n'});
    const auto bytes = Bytes(static_cast<std::size_t>(end - _left.begin()));
    Bytes(1);
    return {bytes.begin(), bytes.end()};
  }
  std::string Rest() {
    const auto bytes = Bytes(Size());
    return {bytes.begin(), bytes.end()};
  }

 private:
  std::span<const std::uint8_t> _left;
};

// Ends the process, by which a fuzzer and a test notice it, unless `holds`.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// Reads every byte, so that one outside the memory is noticed.
inline void Touch(std::span<const std::byte> bytes) {
  static volatile std::size_t touched;  // so that no read is optimised away
  std::size_t sum = 0;
  for (const std::byte byte : bytes) sum += static_cast<std::size_t>(byte);
  touched = touched + sum;
}
inline void Touch(const std::string& text) { Touch(std::as_bytes(std::span(text))); }

}  // namespace tessel::fuzz
