// How frames leave a source: pushed into a callback, or pulled.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tessel/frame_t.h"
#include "tessel/IStreamControl.h"

namespace tessel::api::streaming::common {

// Any thread. IStreamControl says what happens when changes coincide.
class TESSEL_PUBLIC IStreamLifecycle {
 public:
  virtual ~IStreamLifecycle() = default;

  // null -> ready: creates the chain on the real-time side. A second call changes nothing. False
  // after the real-time side has died, until Close(). Call only while no other thread pulls frames.
  virtual bool Open() = 0;
  // any -> null: ends waiting pulls and destroys the chain. Frames that the client still holds stay
  // readable.
  virtual bool Close() = 0;
  // ready -> play.
  virtual bool Start() = 0;
  // play -> ready: ends waiting pulls. Once it has returned true on a client's thread, no callback
  // of the stream runs. It also returns false when a callback does not return within the command
  // time-out; the stream is stopped nevertheless. Called from a callback, it waits for no callback.
  // The same holds for Close(); if that returns false, the stream is at ready. If the wait for
  // another change has timed out, true only means that the change under way will go on to this
  // target.
  virtual bool Stop() = 0;
};

class TESSEL_PUBLIC IStreamOutput : public virtual IStreamControl, public virtual IStreamLifecycle {
 public:
  virtual bool IsSupportedPullFrame() const = 0;
  virtual bool IsSupportedOutputFrameCallback() const = 0;

  // Pull mode only. Replaces `frame` with the next frame. With `blocking` it waits for one; false
  // then means that the stream was stopped or closed, its input ended or the real-time side is
  // gone. Without `blocking`, false also means that no frame is ready yet. Client's thread. Another
  // thread may call Stop() or Close() meanwhile, which end the wait.
  virtual bool PullFrame(std::shared_ptr<frame_t>& frame, bool blocking) = 0;

  // Push mode; call before Open(). `cb` is copied. It runs on the stream thread and should return
  // within a frame time. It may keep the frame and change the state; it must not destroy the
  // source. An exception that it throws is logged and counts as false. RegisterOutputCallback()
  // returns false in pull mode, where the callback is stored but never called.
  virtual bool RegisterOutputCallback(const std::function<bool(std::shared_ptr<frame_t>&)>& cb) = 0;

  // The media description that the real-time side gave at the last Open(), as text:
  // `codec=h264,w=1920,…`. Empty before the first Open(), and always for the synthetic source.
  virtual std::string GetMediaInfo() const = 0;
};

}  // namespace tessel::api::streaming::common
