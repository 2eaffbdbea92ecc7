// Frames without pictures, at a steady rate: tests delivery and timing without a camera or a
// real-time side.
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

// Frame n is due at a fixed time after the start, so delays do not add up: after a late frame the
// next ones follow without a pause until the schedule is met again. A change of the frame rate
// moves the whole schedule. The time stamp of a frame is its scheduled time. Its bytes are never
// written.
//
// Delivery depends on Start() and Stop() only: no operation here reads or changes the control
// state. In push mode the source delivers even while paused, in pull mode even while closed.
// Client's thread, unless said otherwise.
class YuvSourceFake : public api::streaming::IYuvSource,
                      public api::streaming::common::YuvDevice,
                      public api::streaming::common::StreamControl {
 public:
  using frame_t = api::streaming::common::frame_t;
  using OutputCallback = std::function<bool(std::shared_ptr<frame_t>&)>;

  explicit YuvSourceFake(bool pullMode);
  // Stops the worker. A worker that runs without a callback cannot be stopped: the process ends.
  ~YuvSourceFake() override;

  void RegisterMessageCallback(const std::function<bool(const char*)>& cb) override;  // ignored
  bool SendMessage(const char* msg) override;                                         // no effect
  bool IsSupportedPullFrame() const override;
  bool IsSupportedOutputFrameCallback() const override;

  // Pull mode only. Each frame has its own memory. The schedule begins at the origin of the clock,
  // so in practice no call waits; `blocking` makes no difference.
  bool PullFrame(std::shared_ptr<frame_t>& frame, bool blocking) override;
  // Push mode: takes effect with the next frame; the former callback finishes the frame that it
  // has. All frames between Start() and Stop() share one buffer, which is then freed: do not read
  // the bytes of a kept frame after Stop(). False in pull mode, where the callback is stored but
  // never called. The callback runs on the worker's thread. It may call Stop(). It must not
  // register another callback. Start() in the callback ends the process.
  bool RegisterOutputCallback(const OutputCallback& cb) override;

  std::string GetMediaInfo() const override;  // always empty
  void SelectSensor(int index) override;      // stored only
  // Sets the rate of the schedule in frames/s; GetYuvMediaInfo() does not report it. At 0 no frame
  // is pushed until the rate changes, and pulled frames have the time stamp 0. Below 0 every frame
  // is late. Any thread.
  void SetFrameRate(int frames_per_second) override;

  bool Open() override;  // Open() and Close() always return true
  bool Close() override;
  // Push mode: starts the worker. The process ends if this is called in the callback, or a second
  // time without a Stop().
  bool Start() override;
  // Waits for the worker's current frame, and at most a tenth of a second longer. Called in the
  // callback, it does not wait; the worker ends after that frame. Without a callback it does
  // nothing, and a worker goes on.
  bool Stop() override;

 private:
  using Clock = std::chrono::steady_clock;

  void Loop();  // the worker's body
  bool IsWorker() const;
  void JoinWorker();
  // Joins a worker that has been stopped. Ends the process if the worker has not been stopped, or
  // calls this itself.
  void DropWorker();
  // `frames` / `rate`, in whole nanoseconds; 0 if `rate` is 0.
  static std::chrono::nanoseconds DueAfter(std::int64_t frames, int rate);
  // Waits until the rate is not 0 or the worker has to stop. Worker's thread.
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
