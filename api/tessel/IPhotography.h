// Takes still pictures.
#pragma once

#include "tessel/IStreamControl.h"
#include "tessel/IVideo.h"

namespace tessel::api::streaming {

// While it plays, it writes one JPEG file for each snapshot. Settings are stored unchecked; the
// size takes effect at the next Open(). Client's thread.
class TESSEL_PUBLIC IPhotography : public virtual common::IStreamControl,
                                   public virtual common::IVideo {
 public:
  virtual void SelectSensor(int index) = 0;  // no effect: the board has one sensor
  virtual void SetWidth(int pixels) = 0;
  virtual void SetHeight(int pixels) = 0;
  // "ApiJpegSnap-dualos": takes effect with the next picture; GetQP() returns the QP that the
  // encoder used for the last one. "ApiPhotography-dualos": takes effect at the next Open();
  // GetQP() returns the value that was set.
  virtual void SetQP(int qp) = 0;
  virtual int GetQP() const = 0;
  // The file to write from the next picture on: "file://name" in the working directory,
  // "file:///folder/name" anywhere else; percent codes are decoded. Copied.
  virtual void SetURL(const char* url) = 0;
  // Requests one picture. True when the request was posted. A request made before the object plays
  // is served once it plays. False, with a line in the log, when the request was not posted: the
  // URL exceeds the 1023 bytes that "ApiJpegSnap-dualos" has for it, or the object has no
  // rate-control block.
  //
  // With `blocking` it also waits, without a time limit. True when a file was written since the
  // call, or the object was disabled. False when this picture could not be written, or can no
  // longer come because the real-time side is gone or its input has ended; Close() then drops all
  // requests not served. The log gives the reason in the lines `!Write(url,packet)` and `!packet`.
  // "ApiPhotography-dualos" also sends it to its client, as `failed:url=…,reason=…,request=N` and
  // `ended:reason=…`.
  //
  // Take one blocking snapshot at a time, and none in a message callback, where it would wait for
  // itself. If earlier requests that did not block are still unserved, the file may be one of
  // theirs. "ApiPhotography-dualos" waits until its count of pictures, which Start() sets to 0, is
  // exactly one higher; with earlier requests unserved it may wait until the object is disabled.
  virtual bool Snap(bool blocking) = 0;
  // SetURL(), then Snap().
  virtual void Snap(const char* url, bool blocking) = 0;

  virtual bool Open() = 0;
  virtual bool Close() = 0;
  virtual bool Start() = 0;
  virtual bool Stop() = 0;
};

}  // namespace tessel::api::streaming
