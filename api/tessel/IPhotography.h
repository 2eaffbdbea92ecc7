// A taker of still pictures.
#pragma once

#include "tessel/IStreamControl.h"
#include "tessel/IVideo.h"

namespace tessel::api::streaming {

// Open and started, it writes a JPEG file for each snapshot. Settings are stored unchecked; sensor
// and size act at the next Open(). Client's thread.
class TESSEL_PUBLIC IPhotography : public virtual common::IStreamControl,
                                   public virtual common::IVideo {
 public:
  virtual void SelectSensor(int index) = 0;
  virtual void SetWidth(int pixels) = 0;
  virtual void SetHeight(int pixels) = 0;
  virtual void SetQP(int qp) = 0;
  virtual int GetQP() const = 0;
  // Where pictures go from the next one on: "file://name" in the working directory,
  // "file:///folder/name" anywhere; percent codes are decoded. Copied.
  virtual void SetURL(const char* url) = 0;
  // Asks for one picture; true when the request was posted. With `blocking` it also waits: true
  // when the file is there under its name, or the object was disabled; false, with a line in the
  // log, when the picture could not be written or cannot come any more, as the real-time side is
  // gone or its input has ended. Without that it waits for as long as the object is not open and
  // started; what was asked for before Open() is not made up for. One snapshot at a time: behind
  // others that do not block it may return for one of their pictures, and that of
  // "ApiPhotography-dualos", which waits for its count to be exactly one higher, may wait until the
  // object is disabled.
  virtual bool Snap(bool blocking) = 0;
  // SetURL(), then Snap().
  virtual void Snap(const char* url, bool blocking) = 0;

  virtual bool Open() = 0;
  virtual bool Close() = 0;
  virtual bool Start() = 0;
  virtual bool Stop() = 0;
};

}  // namespace tessel::api::streaming
