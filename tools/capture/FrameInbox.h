// Where the frames and the messages of the streams wait for the client's thread.
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

// One lane for each stream. Any thread puts in, one thread takes out. Put() needs no bound: each
// pushed frame keeps a slot of its stream, and a source without a free slot drops what it captures,
// or waits when it is unpaced.
class FrameInbox {
 public:
  using Frame = std::shared_ptr<api::streaming::common::frame_t>;
  using Clock = std::chrono::steady_clock;

  enum class News {
    kFrame,      // the next frame
    kInterrupt,  // the user ends the command; comes before all other news
    kMessage,    // the stream has sent a message, and all frames of the lane are taken out
    kOver,       // the lane is closed, and all its frames are taken out
    kNothing,    // the deadline has passed, or Wake() was called
  };
  // What Wait() returns; `lane` and `frame` are set where the news concerns them.
  struct Item {
    std::size_t lane = 0;
    Frame frame;
  };
  static constexpr unsigned kAllLanes = ~0U;  // one bit for each lane

  explicit FrameInbox(std::size_t lanes = 1) : _lanes(lanes) {}

  void Put(std::size_t lane, Frame frame);
  // The same, but waits while the lane is full: a source may deliver faster than frames are taken
  // out. False once the lane is closed or the command is interrupted.
  [[nodiscard]] bool PutInTurn(std::size_t lane, Frame frame);
  // Releases the lane's frames as they come, instead of keeping them. Call before the first one.
  void Discard(std::size_t lane);
  void PutMessage(std::size_t lane, std::string message);  // replaces the one before
  void Interrupt();
  bool IsInterrupted();
  void Close(std::size_t lane);  // frames that come later are released
  void Wake();                   // ends one Wait()

  // Takes frames out of `lanes` only, the one that was captured first before the others. A message,
  // and that a lane is over, is reported once.
  News Wait(Item& item, Clock::time_point deadline, unsigned lanes = kAllLanes);
  // Waits for the first frame until `deadline`, then until each of `lanes` has a frame, `patience`
  // at most. Other news end the wait.
  void WaitForEach(unsigned lanes, std::chrono::milliseconds patience, Clock::time_point deadline);
  // The time stamp of the next frame in the lane; none when the lane is empty.
  std::optional<std::int64_t> NextStamp(std::size_t lane);
  // Waits for a message until `deadline`. Returns the last one, or an empty text without one.
  std::string WaitForMessage(std::size_t lane, Clock::time_point deadline);

 private:
  struct Lane {
    std::deque<Frame> frames;
    std::optional<std::string> message;
    bool message_is_new = false;
    bool is_closed = false;
    bool end_is_reported = false;
    bool is_discarded = false;
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
