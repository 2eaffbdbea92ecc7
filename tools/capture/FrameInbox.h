// Where the frames and the messages of the streams wait for the thread that writes them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tessel/frame_t.h"

namespace tessel::tool {

// A lane a stream; any thread puts in, one thread takes out. Frames that are pushed need no bound
// here: each one keeps a slot of the stream, and a source without a free slot drops what it
// captures, or waits when it is unpaced.
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
  // What Wait() brings; `lane` and `frame` where the news are of one.
  struct Item {
    std::size_t lane = 0;
    Frame frame;
  };
  static constexpr unsigned kAllLanes = ~0U;  // a bit each

  explicit FrameInbox(std::size_t lanes = 1) : _lanes(lanes) {}

  void Put(std::size_t lane, Frame frame);
  // The same, but waits while many frames are in: a source may make them faster than anybody can
  // take them. False when nobody takes it out any more.
  [[nodiscard]] bool PutInTurn(std::size_t lane, Frame frame);
  void Tell(std::size_t lane, std::string message);  // the last one counts
  void Interrupt();
  bool IsInterrupted();
  void Close(std::size_t lane);  // no frame will come any more
  void Wake();                   // ends Wait() once

  // Of `lanes`, the frame that was captured first goes first; others wait. A message, and that a
  // lane is over, is announced once.
  News Wait(Item& item, Clock::time_point deadline, unsigned lanes = kAllLanes);
  // Waits until each of `lanes` has a frame, at most `patience` longer than for the first one, and
  // for that until `deadline`; or until there are other news.
  void WaitForEach(unsigned lanes, std::chrono::milliseconds patience, Clock::time_point deadline);
  // The time stamp of the frame that is next in the lane; none when none is there yet.
  std::optional<std::int64_t> NextStamp(std::size_t lane);
  // The last message, waited for until `deadline`; empty when none came.
  std::string WaitForMessage(std::size_t lane, Clock::time_point deadline);

 private:
  struct Lane {
    std::deque<Frame> frames;
    std::optional<std::string> message;
    bool message_is_new = false;
    bool is_closed = false;
    bool end_is_told = false;
  };
  bool HasNews(unsigned lanes) const;
  News TakeNews(Item& item, unsigned lanes);

  std::mutex _mutex;
  std::condition_variable _changed;
  // Guarded by _mutex.
  std::vector<Lane> _lanes;
  bool _is_woken = false;
  bool _is_interrupted = false;
};

}  // namespace tessel::tool
