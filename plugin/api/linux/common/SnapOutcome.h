// What the sink that writes a file for each picture tells those above it, and what a snapshot that
// waits for its file makes of that.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "quill/object.h"

namespace tessel::dualos {

// A message is known by its note ("extra"). Any thread.
class SnapOutcome {
 public:
  // Notes what the message tells. True when it is that a picture is there as a file.
  bool Heed(const quill::base::Message& message);

  // A new stream of pictures begins.
  void Begin() { _is_over = false; }
  // To be kept from before a request is made.
  std::uint32_t Failures() const { return _failures; }
  // Polls until `is_done`. False when a picture asked for since `failures` were counted need not be
  // waited for: one has failed, perhaps an earlier one, or none will come any more.
  bool Await(std::uint32_t failures, const std::function<bool()>& is_done) const;

 private:
  std::atomic<std::uint32_t> _failures{0};
  std::atomic<bool> _is_over{false};
};

}  // namespace tessel::dualos
