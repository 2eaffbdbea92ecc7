// One delivered media unit.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace tessel::api::streaming::common {

// Always held by std::shared_ptr and never copied. Dropping the last reference releases the memory
// behind `data`; any thread may do that. A frame may outlive its stream, but not the host library.
struct frame_t {
  frame_t() = default;
  frame_t(const frame_t&) = delete;
  frame_t& operator=(const frame_t&) = delete;
  ~frame_t() {
    if (release) release();
  }

  std::uint32_t seq = 0;               // counts captured units; a gap is a dropped unit
  const std::uint8_t* data = nullptr;  // payload, readable while the frame lives
  std::uint32_t size = 0;              // bytes
  bool isKey = false;                  // video: an IDR picture
  std::int64_t timestamp = 0;          // ns, CLOCK_MONOTONIC at capture
  std::function<void()> release;       // called once by the destructor, if set
};

}  // namespace tessel::api::streaming::common
