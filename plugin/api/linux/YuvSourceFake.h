// Frames without pictures, at a steady rate: for trying the path and the timing of frames without a
// camera or a real-time side.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "common/Replaceable.h"
#include "common/StreamControl.h"
#include "common/YuvDevice.h"
#include "tessel/IYuvSource.h"

namespace tessel::dualos {

// Frame n is due at a fixed time after the start, so lateness does not add up; a late frame is
// followed by others without a pause until the schedule is met again. A change of the frame rate
// moves the whole schedule. The frame's time is the scheduled one. Its bytes are never written.
//
// Frames depend on Start() and Stop() alone: no operation here looks at the control state or
// changes it. A pushed source delivers also while it is paused, a pulled one also while it is
// closed. Client's thread, unless said otherwise.
class YuvSourceFake : public api::streaming::IYuvSource,
                      public api::streaming::common::YuvDevice,
                      public api::streaming::common::StreamControl {
 public:
  using frame_t = api::streaming::common::frame_t;
  using OutputCallback = std::function<bool(std::shared_ptr<frame_t>&)>;

  explicit YuvSourceFake(bool pullMode);
  // Stops the worker. One that still runs and has no callback cannot be stopped: the process ends.
  ~YuvSourceFake() override;

  void RegisterMessageCallback(const std::function<bool(const char*)>& cb) override;  // not kept
  bool SendMessage(const char* msg) override;                                         // no effect
  bool IsSupportedPullFrame() const override;
  bool IsSupportedOutputFrameCallback() const override;

  // Pull mode. Each frame has memory of its own. The schedule begins with the clock itself, so in
  // practice no call waits; `blocking` makes no difference.
  bool PullFrame(std::shared_ptr<frame_t>& frame, bool blocking) override;
  // Push mode: acts from the next frame on; a frame that the former callback has already goes to
  // its end. All frames of a run show the same memory, which is freed at the end of the run: who
  // keeps a frame must not touch its bytes after Stop(). False in pull mode, where the callback is
  // stored and never called. Stream thread, which is the worker's. The callback may call Stop(); it
  // must not register another one, and Start() in it ends the process.
  bool RegisterOutputCallback(const OutputCallback& cb) override;

  std::string GetMediaInfo() const override;  // always empty
  void SelectSensor(int index) override;      // stored only
  // Frames/s of the schedule; GetYuvMediaInfo() does not report it. At 0 there is no schedule: no
  // frame is pushed until the rate changes, and pulled frames have the time 0. Below 0 every frame
  // is late. Any thread.
  void SetFrameRate(int frames_per_second) override;

  bool Open() override;  // both true, without a condition
  bool Close() override;
  // Push mode: starts the worker. Without a Stop() since the last Start(), or in the callback, the
  // process ends.
  bool Start() override;
  // Waits for the worker's current frame, and a tenth of a second at most besides; in the callback
  // it does not wait, and the worker ends with that frame. Without a callback it does nothing and a
  // worker goes on; without a worker there is nothing to do.
  bool Stop() override;

 private:
  using Clock = std::chrono::steady_clock;

  void Loop();  // the worker's body
  bool IsWorker() const;
  void JoinWorker();
  // Ends the process when the worker was not told to stop, or calls this itself.
  void DropWorker();
  // `frames` / `rate`, in whole nanoseconds; 0 where there is no rate.
  static std::chrono::nanoseconds DueAfter(std::int64_t frames, int rate);
  // Waits until there is a rate or the worker has to stop. Worker's thread.
  int AwaitFrameRate() const;
  void SleepUntil(std::chrono::steady_clock::time_point due) const;  // worker's thread

  Replaceable<OutputCallback> _output;        // used by the worker
  std::unique_ptr<std::thread> _worker;       // client's thread only
  std::atomic<std::thread::id> _loop_thread;  // the worker's, while it loops
  std::atomic<bool> _running{false};
  const bool _pullmode;
  std::atomic<int> _frame_rate{30};  // frames/s
  std::atomic<int> _pull_count{0};
  Clock::time_point _pull_base{};  // the clock's origin
  int _sensor = 0;
  std::string _media_info;
};

}  // namespace tessel::dualos
