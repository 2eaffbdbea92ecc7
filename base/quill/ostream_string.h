// The host's text streams. They format numbers and pointers for layout strings and log lines.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "quill/Visibility.h"

namespace quill::base {

// Receives text. Any thread, one at a time for each stream.
class QUILL_PUBLIC ostream {
 public:
  virtual ~ostream() = default;
  virtual void Write(std::string_view text) = 0;
};

class QUILL_PUBLIC ostream_string : public ostream {
 public:
  void Write(std::string_view text) override { _text.append(text); }
  const std::string& str() const { return _text; }

  ostream_string& operator<<(const char* text);     // null prints nothing
  ostream_string& operator<<(long long number);     // decimal
  ostream_string& operator<<(const void* pointer);  // "0x" and lower-case hexadecimal
  // Inline, so that a plug-in needs no further symbol of the host.
  ostream_string& operator<<(const std::string& text) {
    _text += text;
    return *this;
  }
  ostream_string& operator<<(int number) { return *this << static_cast<long long>(number); }
  ostream_string& operator<<(unsigned number) { return *this << static_cast<long long>(number); }

 private:
  std::string _text;
};

// `value` as text, as an ostream_string prints it.
template <typename T>
std::string ToString(const T& value) {
  ostream_string text;
  text << value;
  return text.str();
}

// A handle as text, in the form of a pointer.
QUILL_PUBLIC std::string HandleText(std::uint64_t handle);
// Parses the text of a handle or a pointer. Returns 0, which is never a handle, for null and for
// any other text.
QUILL_PUBLIC std::uint64_t ReadHandle(const char* text);

}  // namespace quill::base
