// Pictures from outside, at the moments they are for: from a media file or a V4L2 camera.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "MediaReader.h"
#include "Picture.h"

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
  // Opens the V4L2 device and waits, for half a second at most, for its first picture. The
  // device may deliver another size and rate. Null with `error` as above.
  static std::unique_ptr<MediaInput> OpenCamera(const std::string& device, int width, int height,
                                                int frames_per_second, std::string& error);

  // Call right after OpenFile(): if the file's sound begins before its pictures, the first picture
  // is shown for that time, too, in the first pass.
  void KeepLead();

  // Moves on to the picture that a file shows `time_ns` after its start, loops included; only ever
  // forward. A camera moves on to the newest picture there is, without waiting.
  Step AdvanceTo(std::int64_t time_ns);
  // The current picture through `scaler`, to fill `into`. False when it cannot be converted;
  // Error() says why. REQUIRES: what Scaler::Scale() requires.
  [[nodiscard]] bool Render(Scaler& scaler, const Picture& into);

  const std::string& Error() const { return _reader.Error(); }

 private:
  explicit MediaInput(std::string name);
  bool DecodeFirst();
  bool WaitForFirst();
  MediaReader::Step DecodeNext();
  Step AdvanceFile(std::int64_t time_ns);
  Step AdvanceCamera();
  std::int64_t StartOf(const AVFrame& frame);

  // Constant after opening.
  bool _is_camera = false;
  bool _loop = false;

  MediaReader _reader;
  FramePtr _current = MakeFrame();  // what is shown
  FramePtr _next = MakeFrame();     // decoded ahead, shown from _next_start_ns on
  bool _has_next = false;
  std::int64_t _pass_start_ns = 0;  // where the current pass through the file begins
  std::int64_t _next_start_ns = 0;
  std::int64_t _decoded_end_ns = 0;  // where the last picture decoded ends
};

}  // namespace tessel::rtos
