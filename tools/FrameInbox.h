// Where the frames and the messages of one stream wait for the thread that writes them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "tessel/frame_t.h"

namespace tessel::tool {

// Any thread puts in, one thread takes out. Frames that are pushed need no bound here: each one
// keeps a slot of the stream, and a source without a free slot drops pictures, or waits when it is
// unpaced.
class FrameInbox {
 public:
  using Frame = std::shared_ptr<api::streaming::common::frame_t>;
  using Clock = std::chrono::steady_clock;

  enum class News {
    kFrame,      // the next frame is there
    kInterrupt,  // the user wants an end; goes before everything else
    kMessage,    // the stream has said something, and all frames before it are taken out
    kOver,       // no frame will come any more, and all are taken out
    kNothing,    // the time is up, or somebody wants the taker awake
  };

  void Put(Frame frame);
  // The same, but waits while many frames are in: a source may make them faster than anybody can
  // take them. False when nobody takes it out any more.
  [[nodiscard]] bool PutInTurn(Frame frame);
  void Tell(std::string message);  // the last one counts
  void Interrupt();
  void Close();  // no frame will come any more
  void Wake();   // ends Wait() once

  // A message is announced once.
  News Wait(Frame& frame, Clock::time_point deadline);
  // The last message, waited for until `deadline`; empty when none came.
  std::string WaitForMessage(Clock::time_point deadline);

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  // Guarded by _mutex.
  std::deque<Frame> _frames;
  std::optional<std::string> _message;
  bool _message_is_new = false;
  bool _is_woken = false;
  bool _is_interrupted = false;
  bool _is_closed = false;
};

}  // namespace tessel::tool
