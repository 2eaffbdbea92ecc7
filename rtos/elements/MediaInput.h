// Pictures from outside: a media file or a V4L2 camera. Reads and decodes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Element.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;

namespace tessel::rtos {

class Scaler;

// One thread at a time.
class MediaInput {
 public:
  enum class Step {
    kSame,    // the current picture is still the one to show
    kNew,     // it has changed
    kEnd,     // the file is over
    kFailed,  // Error() says why
  };

  // Opens the file `path` and decodes its first picture; with `loop` the file starts anew at its
  // end. Null with `error`, which names the sensor, when there is no such file or no video in it.
  static std::unique_ptr<MediaInput> OpenFile(const std::string& path, bool loop,
                                              std::string& error);
  // Opens the V4L2 device and waits, for half a second at most, for its first picture. The size and
  // the rate are wishes; the device may deliver others. Null with `error` as above.
  static std::unique_ptr<MediaInput> OpenCamera(const std::string& device, int width, int height,
                                                int frames_per_second, std::string& error);
  ~MediaInput();

  // Moves on to the picture that a file shows `time_ns` after its start, loops included; only ever
  // forward. A camera moves on to the newest picture there is, without waiting.
  Step AdvanceTo(std::int64_t time_ns);
  // The current picture through `scaler`, to fill `into`. False when it cannot be converted;
  // Error() says why. REQUIRES: as of Scaler::Scale.
  [[nodiscard]] bool Render(Scaler& scaler, const Picture& into);

  const std::string& Error() const { return _error; }

 private:
  struct Free {
    void operator()(AVFormatContext* format) const;
    void operator()(AVCodecContext* codec) const;
    void operator()(AVFrame* frame) const;
    void operator()(AVPacket* packet) const;
  };
  // What came of one attempt to decode a picture.
  enum class Decoded { kPicture, kNothingYet, kEnd, kFailed };

  explicit MediaInput(std::string name);
  bool OpenContainer();
  bool OpenDevice(int width, int height, int frames_per_second);
  bool OpenDecoder();
  bool DecodeFirst();
  bool WaitForFirst();
  Decoded DecodeInto(AVFrame& frame);
  Decoded Feed();
  Decoded DecodeNext();
  Decoded StartAnew();
  bool SeekTime();
  bool SeekPlace();
  bool Reopen();
  std::int64_t ToNs(std::int64_t time) const;
  Step AdvanceFile(std::int64_t time_ns);
  Step AdvanceCamera();
  std::int64_t StartOf(const AVFrame& frame);
  bool FailWith(const std::string& reason);

  // Constant after opening.
  std::string _name;
  bool _is_camera = false;
  bool _loop = false;
  int _stream = -1;                    // index of the video stream
  std::int64_t _nominal_frame_ns = 0;  // for pictures that do not say how long they last

  std::int64_t _deadline_ns = 0;  // CLOCK_MONOTONIC; reading after it fails. `_format` points to it
  std::unique_ptr<AVFormatContext, Free> _format;
  std::unique_ptr<AVCodecContext, Free> _codec;
  std::unique_ptr<AVPacket, Free> _packet;
  std::unique_ptr<AVFrame, Free> _current;  // what is shown
  std::unique_ptr<AVFrame, Free> _next;     // decoded ahead, shown from _next_start_ns on
  bool _has_next = false;
  std::int64_t _first_pts_ns = 0;  // time stamp of the first picture in the file
  bool _knows_first_pts = false;
  std::int64_t _pass_start_ns = 0;  // where the current pass through the file begins
  std::int64_t _next_start_ns = 0;
  std::int64_t _decoded_end_ns = 0;  // where the last picture decoded ends
  std::string _error;
};

}  // namespace tessel::rtos
