// What the sink that writes a file for each picture tells those above it, and what a snapshot that
// waits for its file makes of that.
#pragma once

#include <atomic>
#include <cstdint>

#include "quill/object.h"

namespace tessel::dualos {

// A message is known by its note ("extra"). Any thread.
class SnapOutcome {
 public:
  enum class Notice { kOther, kNewFrame, kFailed, kEnded };
  // Notes what the message tells, and says what that is: a picture is there as a file, one came to
  // nothing, or none will come any more.
  Notice Heed(const quill::base::Message& message);

  // A new stream of pictures begins.
  void Begin() { _is_over = false; }
  // To be kept from before a request is made.
  std::uint32_t Failures() const { return _failures; }
  // Whether a picture asked for since then need not be waited for: one has failed, perhaps an
  // earlier one, or none will come any more.
  bool IsHopeless(std::uint32_t failures_before) const {
    return _is_over || _failures != failures_before;
  }

 private:
  std::atomic<std::uint32_t> _failures{0};
  std::atomic<bool> _is_over{false};
};

}  // namespace tessel::dualos
