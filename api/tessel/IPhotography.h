// A taker of still pictures.
#pragma once

#include "tessel/IStreamControl.h"
#include "tessel/IVideo.h"

namespace tessel::api::streaming {

// Open and started, it writes a JPEG file for each snapshot. Settings are stored unchecked; the
// size acts at the next Open(). Client's thread.
class TESSEL_PUBLIC IPhotography : public virtual common::IStreamControl,
                                   public virtual common::IVideo {
 public:
  virtual void SelectSensor(int index) = 0;  // no effect: the board has one sensor
  virtual void SetWidth(int pixels) = 0;
  virtual void SetHeight(int pixels) = 0;
  // "ApiJpegSnap-dualos": acts on the next picture; GetQP() is what the encoder used for the last
  // one. "ApiPhotography-dualos": acts at the next Open(); GetQP() is what was set.
  virtual void SetQP(int qp) = 0;
  virtual int GetQP() const = 0;
  // Where pictures go from the next one on: "file://name" in the working directory,
  // "file:///folder/name" anywhere; percent codes are decoded. Copied.
  virtual void SetURL(const char* url) = 0;
  // Asks for one picture; true when the request was posted. A request made before the object plays
  // is served once it does. False, with a line in the log, when nothing was posted: the URL is
  // longer than the 1023 bytes that "ApiJpegSnap-dualos" has for it, or memory for requests is
  // missing.
  //
  // With `blocking` it also waits, for as long as it takes. True: a file was written since the
  // call, or the object was disabled. False: this picture could not be written, or cannot come any
  // more as the real-time side is gone or its input has ended; what was not served by then is
  // dropped at Close(). The reason is in the log, in the lines `!Write(url,packet)` and `!packet`;
  // "ApiPhotography-dualos" also sends it to its client, as `failed:url=…,reason=…,request=N` and
  // `ended:reason=…`.
  //
  // One blocking snapshot at a time, and none in a message callback, which would wait for itself.
  // Where requests that did not block are not served yet, the file may be one of theirs. And as
  // "ApiPhotography-dualos" waits for its count of pictures, which Start() sets to 0, to be exactly
  // one higher, it may then wait until the object is disabled.
  virtual bool Snap(bool blocking) = 0;
  // SetURL(), then Snap().
  virtual void Snap(const char* url, bool blocking) = 0;

  virtual bool Open() = 0;
  virtual bool Close() = 0;
  virtual bool Start() = 0;
  virtual bool Stop() = 0;
};

}  // namespace tessel::api::streaming
