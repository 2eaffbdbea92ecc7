// One stream of a capture: opened, played and stopped, its frames and messages put into a lane of
// the inbox.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "FrameInbox.h"
#include "Source.h"

namespace tessel::tool {

// Client's thread.
class Stream {
 public:
  // Why the stream has ended by itself.
  struct End {
    bool is_failure = false;
    std::string reason;
  };

  Stream(Source source, std::size_t lane, std::shared_ptr<FrameInbox> inbox);
  ~Stream() { Stop(); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  // False with `error` when it cannot be opened, or played.
  [[nodiscard]] bool Open(std::string& error);
  [[nodiscard]] bool Start(std::string& error);
  // No frame comes in after this. May be called again.
  void Stop();

  // Once the inbox brings a message: a pushed stream whose end it is has stopped then, with its
  // last frames in.
  void HearMessage();
  // Once the inbox has said that the stream is over, though nobody has stopped it.
  End JudgeEnd();

  Source& GetSource() { return _source; }
  const Source& GetSource() const { return _source; }
  bool IsPull() const { return _is_pull; }
  // Captures that came to nothing for want of a slot.
  std::uint64_t Dropped() const;

 private:
  bool StartReader(std::string& error);
  bool IsDrained() const;

  Source _source;
  const std::size_t _lane;
  const std::shared_ptr<FrameInbox> _inbox;
  std::string _session;  // its name in the host's counters; empty: it has none
  bool _is_pull = false;
  bool _is_playing = false;
  std::uint64_t _dropped = 0;  // once it has stopped
  std::thread _reader;         // pull mode: takes frames off the stream
};

}  // namespace tessel::tool
