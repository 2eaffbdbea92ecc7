// One stream: it is opened, played and stopped, and its frames and messages go into a lane of the
// inbox.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "CaptureSource.h"
#include "FrameInbox.h"

namespace tessel::tool {

// Client's thread.
class CaptureStream {
 public:
  // Why the stream has ended by itself.
  struct End {
    bool is_failure = false;
    std::string reason;
  };

  CaptureStream(CaptureSource source, std::size_t lane, std::shared_ptr<FrameInbox> inbox);
  ~CaptureStream() { Stop(); }
  CaptureStream(const CaptureStream&) = delete;
  CaptureStream& operator=(const CaptureStream&) = delete;

  // False with `error` when it cannot be opened or played.
  [[nodiscard]] bool Open(std::string& error);
  [[nodiscard]] bool Start(std::string& error);
  // No frame comes in after this. May be called again.
  void Stop();

  // Call when the inbox reports a message. A pushed stream that the message ends is stopped, once
  // its last frames are in the inbox.
  void OnMessage();
  // Why the stream has ended. Call when the inbox reports that it is over and Stop() was not
  // called.
  End JudgeEnd();

  CaptureSource& GetSource() { return _source; }
  const CaptureSource& GetSource() const { return _source; }
  bool IsPull() const { return _is_pull; }
  // Captures that were lost because no slot was free.
  std::uint64_t Dropped() const;

 private:
  bool StartReader(std::string& error);
  bool IsDrained() const;

  CaptureSource _source;
  const std::size_t _lane;
  const std::shared_ptr<FrameInbox> _inbox;
  std::string _session;  // its name in the host's counters; empty without a session
  bool _is_pull = false;
  bool _is_playing = false;
  std::uint64_t _dropped = 0;  // once it has stopped
  std::thread _reader;         // pull mode: takes frames off the stream
};

}  // namespace tessel::tool
