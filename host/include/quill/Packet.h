// One media unit handed between host elements, and the description of the media it belongs to.
#pragma once

#include <cstdint>
#include <string>

#include "quill/IParam.h"
#include "quill/Reference.h"

namespace quill::stream {

// Any thread that holds it; immutable while held.
class QUILL_PUBLIC Packet : public base::Reference {
 public:
  const std::uint8_t* Data() const;
  std::uint32_t Size() const;
  bool IsKey() const;
  std::int64_t Time() const { return _time_ns; }  // ns, CLOCK_MONOTONIC at capture
  std::uint32_t Sequence() const { return _sequence; }

 protected:
  const std::uint8_t* _data = nullptr;
  std::uint32_t _size_bytes = 0;
  std::uint32_t _sequence = 0;
  std::int64_t _time_ns = 0;
  bool _is_key = false;
};

// The media of one stream. Parameters are typed: numbers as int, texts as const char*,
// addresses as void*. Constant after the stream has opened.
class QUILL_PUBLIC IMedia : public virtual base::IParam {
 public:
  using IParam::Get;
  virtual bool IsCodec(const char* name) const = 0;  // "h264", in any case
  virtual std::string ToString() const = 0;          // the description as text
};

}  // namespace quill::stream
