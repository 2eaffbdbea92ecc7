// What the sink that writes a file for each picture tells those above it, and what a snapshot that
// waits for its file makes of that.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "quill/Message.h"

namespace tessel::dualos {

// A message is known by its note ("extra"). Any thread.
class SnapOutcome {
 public:
  // Notes what the message tells. True when it is that a picture is there as a file.
  bool Heed(const quill::base::Message& message);

  // The stream of pictures is closed, or a new one begins.
  void Begin() { _is_over = false; }
  // Streams that have ended. To be kept from before a request is made.
  std::uint32_t Ends() const { return _ends; }
  // Polls until `is_done`. False when the picture of `request`, a running count, need not be waited
  // for: it could not be written, or it was lost and a later one could not be written, or the
  // stream has ended since `ends` were counted.
  bool Await(std::uint32_t request, std::uint32_t ends, const std::function<bool()>& is_done) const;

 private:
  std::atomic<std::uint32_t> _last_failed{0};  // request; 0: none has failed
  std::atomic<std::uint32_t> _ends{0};
  std::atomic<bool> _is_over{false};
};

}  // namespace tessel::dualos
