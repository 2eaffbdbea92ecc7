// Frames without pictures, at a steady rate: for trying the path and the timing of frames without a
// camera or a real-time side.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/StreamControl.h"
#include "common/YuvDevice.h"
#include "tessel/IYuvSource.h"

namespace tessel::dualos {

// Frame n is due at a fixed time after the start, whatever became of the ones before, so lateness
// does not add up; a late frame is followed by others without a pause until the schedule is met
// again. A change of the frame rate moves the whole schedule. The frame's time is the scheduled
// one. Its bytes are never written.
//
// Moves through the states by the machine of its base alone; the four operations here leave the
// state as it is. Client's thread, but for what is said below.
class YuvSourceFake : public api::streaming::IYuvSource,
                      public api::streaming::common::YuvDevice,
                      public api::streaming::common::StreamControl {
 public:
  using frame_t = api::streaming::common::frame_t;
  using OutputCallback = std::function<bool(std::shared_ptr<frame_t>&)>;

  explicit YuvSourceFake(bool pullMode);
  // Stops a worker that has a callback. One that has none cannot be stopped: ends the process.
  ~YuvSourceFake() override;

  void RegisterMessageCallback(const std::function<bool(const char*)>& cb) override;  // not kept
  bool SendMessage(const char* msg) override;                                         // no effect
  bool IsSupportedPullFrame() const override;
  bool IsSupportedOutputFrameCallback() const override;

  // Pull mode. Each frame has memory of its own. The schedule begins with the clock itself, so in
  // practice no call waits; `blocking` makes no difference.
  bool PullFrame(std::shared_ptr<frame_t>& frame, bool blocking) override;
  // Push mode: from the next frame on. All frames of a run show the same memory, which goes with
  // the run: whoever keeps a frame must not touch its bytes after Stop(). In pull mode false, but
  // stored; see Stop(). Stream thread, which is the worker. The callback may call Stop() and
  // Start(), which then goes on by the same schedule; it must not register another one.
  bool RegisterOutputCallback(const OutputCallback& cb) override;

  std::string GetMediaInfo() const override;  // always empty
  void SelectSensor(int index) override;      // stored only
  // Frames/s of the schedule; GetYuvMediaInfo() does not tell of it. 0 is refused and changes
  // nothing. Any thread.
  void SetFrameRate(int frames_per_second) override;

  bool Open() override;  // both true, without a condition
  bool Close() override;
  // Push mode: starts the worker. A second time without Stop() in between ends the process.
  bool Start() override;
  // Waits for the worker's current frame, and a tenth of a second at most besides. Without a
  // callback it does nothing and a worker goes on; without a worker there is nothing to do.
  bool Stop() override;

 private:
  using Clock = std::chrono::steady_clock;

  void Loop();  // the worker's body
  std::chrono::nanoseconds DueAfter(std::int64_t frames) const;

  // The newest one counts. Older ones stay until the end, as the worker may be inside one.
  std::vector<std::unique_ptr<const OutputCallback>> _callbacks;
  std::atomic<const OutputCallback*> _output{nullptr};  // pairs release with the worker's acquire
  std::unique_ptr<std::thread> _worker;                 // client's thread only
  std::atomic<std::thread::id> _loop_thread;            // the worker's, while it loops
  std::atomic<bool> _running{false};
  const bool _pullmode;
  std::atomic<int> _frame_rate{30};  // frames/s
  std::atomic<int> _pull_count{0};
  Clock::time_point _pull_base{};  // the clock's origin
  int _sensor = 0;
  std::string _media_info;
};

}  // namespace tessel::dualos
