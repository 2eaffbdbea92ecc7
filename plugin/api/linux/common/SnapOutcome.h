// The outcome of snapshots, read from the messages of the sink that writes a file for each picture.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "quill/Message.h"

namespace tessel::dualos {

// The note of a message ("extra") says what it reports. Any thread.
class SnapOutcome {
 public:
  // Records a failure or the end of the stream. True if the message reports a completed file.
  bool OnMessage(const quill::base::Message& message);

  // Call when the stream of pictures is closed, and when a new one begins.
  void Begin() { _is_over = false; }
  // The number of streams that have ended. Read it before making a request.
  std::uint32_t Ends() const { return _ends; }
  // Polls until `is_done` returns true. False when the picture of `request`, the number of the
  // request, will not come: that picture or a later one could not be written, or the stream has
  // ended since Ends() returned `ends`.
  bool Await(std::uint32_t request, std::uint32_t ends, const std::function<bool()>& is_done) const;

 private:
  std::atomic<std::uint32_t> _last_failed{0};  // number of the request; 0: none has failed
  std::atomic<std::uint32_t> _ends{0};
  std::atomic<bool> _is_over{false};
};

}  // namespace tessel::dualos
