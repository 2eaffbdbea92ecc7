// How frames leave a source: pushed into a callback, or pulled.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tessel/frame_t.h"
#include "tessel/IStreamControl.h"

namespace tessel::api::streaming::common {

// Any thread; see IStreamControl for changes that meet.
class TESSEL_PUBLIC IStreamLifecycle {
 public:
  virtual ~IStreamLifecycle() = default;

  // null -> ready: creates the chain on the real-time side. A second call changes nothing. False
  // once the real-time side has died, until Close(). Not while another thread pulls frames.
  virtual bool Open() = 0;
  // any -> null: ends waiting pulls, destroys the chain. Frames still held stay readable.
  virtual bool Close() = 0;
  // ready -> play.
  virtual bool Start() = 0;
  // play -> ready: ends waiting pulls. When it has returned true on a client's thread, no callback
  // of the stream runs. False also when a callback has not returned within the time-out of a
  // command; the stream is stopped all the same. Called from a callback it does not wait for any.
  // Close() likewise; where it answers false the stream is at ready. Where the wait for another
  // change has timed out, true says only that the change under way will go on to there.
  virtual bool Stop() = 0;
};

class TESSEL_PUBLIC IStreamOutput : public virtual IStreamControl, public virtual IStreamLifecycle {
 public:
  virtual bool IsSupportedPullFrame() const = 0;
  virtual bool IsSupportedOutputFrameCallback() const = 0;

  // Pull mode only. Puts the next frame into `frame`, releasing what it held. With `blocking` it
  // waits for one; false means none came: the stream was stopped or closed, the input ended or the
  // real-time side is gone. Without `blocking`, false also means that none is there yet.
  // Client's thread; may wait while another thread calls Stop() or Close(), which end the wait.
  virtual bool PullFrame(std::shared_ptr<frame_t>& frame, bool blocking) = 0;

  // Push mode; register before Open(). `cb` is copied and runs on the stream thread, which it
  // should not keep for longer than a frame time. Stream thread. May keep the frame and change the
  // state; must not destroy the source. An exception that it throws is logged and counts as false.
  // False in pull mode, where the callback is stored but never called.
  virtual bool RegisterOutputCallback(const std::function<bool(std::shared_ptr<frame_t>&)>& cb) = 0;

  // The media as the real-time side described it at the last Open(), as text:
  // `codec=h264,w=1920,…`. Empty before, and always for the synthetic source.
  virtual std::string GetMediaInfo() const = 0;
};

}  // namespace tessel::api::streaming::common
