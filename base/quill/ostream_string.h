// The host's text streams: numbers and pointers as they stand in layout strings and log lines.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "quill/Visibility.h"

namespace quill::base {

// Where text goes. Any thread, one at a time a stream.
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
  // What a plug-in needs beyond these is compiled into it.
  ostream_string& operator<<(const std::string& text) {
    _text += text;
    return *this;
  }
  ostream_string& operator<<(int number) { return *this << static_cast<long long>(number); }
  ostream_string& operator<<(unsigned number) { return *this << static_cast<long long>(number); }

 private:
  std::string _text;
};

// `value` as an ostream_string prints it.
template <typename T>
std::string ToString(const T& value) {
  ostream_string text;
  text << value;
  return text.str();
}

// The text of a handle, like that of a pointer.
QUILL_PUBLIC std::string HandleText(std::uint64_t handle);
// The number behind the text of a handle or a pointer; 0, which none is, for null and for what is
// no such text.
QUILL_PUBLIC std::uint64_t ReadHandle(const char* text);

}  // namespace quill::base
