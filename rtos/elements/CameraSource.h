// The camera sensor: a test pattern, a media file or a V4L2 camera.
//
//   pv-yuv-src-adv   w, h   picture size, even numbers in 16..7680 and 16..4320; required
//                    fmt    layout of a raw picture, see PixelFormats.h; "420V50", planar 4:2:0,
//                    unless
//                           given. An encoder takes only that one
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Element.h"
#include "MediaInput.h"
#include "PixelFormats.h"
#include "Scaler.h"
#include "TestPattern.h"

namespace tessel::rtos {

// When captures are due: a fixed grid, so that lateness does not add up. One thread.
class CaptureSchedule {
 public:
  // The next capture is due at `first_ns`.
  void Restart(std::int64_t first_ns);
  // Steps on and returns when the next capture is due. A change of rate counts from the last one.
  std::int64_t Next(int frames_per_second);
  // The capture that Next() announced takes place at `now_ns` instead, and the grid moves with it.
  void MoveTo(std::int64_t now_ns);
  // From the capture before to the one that Next() announced, as planned.
  std::int64_t StepNs() const { return _step_ns; }

 private:
  std::int64_t _anchor_ns = 0;  // a point of the grid
  std::int64_t _steps = 0;      // since the anchor
  std::int64_t _due_ns = 0;
  std::int64_t _step_ns = 0;
  int _rate = 0;  // frames/s; 0: nothing was due yet
};

class CameraSource : public Source {
 public:
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  void Start() override;
  Verdict Await(Unit& unit, StopSignal& stop) override;
  Verdict Process(Unit& unit) override;
  Verdict Skip(Unit& unit) override;
  bool IsLive() const override { return _paced; }

 private:
  bool ReadParams(const AttrSet& params, std::string& error);
  bool OpenSensor(const ChainSettings& settings, Colours colours, std::string& error);
  void Describe(AttrSet& description) const;
  Verdict AdvanceInput();
  Verdict FillBuffer(const Unit& unit);
  Verdict Make(const Unit& unit, const Picture& into);

  // Constant after Open.
  int _width = 0;
  int _height = 0;
  const PixelFormat* _format = &Planar420();
  std::string _format_name = _format->name;  // as asked
  int _nominal_rate = 0;                     // frames/s
  bool _paced = true;
  bool _writes_slot = false;  // no encoder follows
  std::size_t _picture_bytes = 0;
  std::unique_ptr<TestPattern> _pattern;  // exactly one of these two is set
  std::unique_ptr<MediaInput> _input;
  std::unique_ptr<Scaler> _scaler;  // null: the pattern is drawn as it is delivered

  // Chain thread only.
  CaptureSchedule _schedule;
  PictureBuffer _drawn;             // the pattern, where it has to be converted
  PictureBuffer _buffer;            // empty where pictures are made in the slot
  bool _buffer_is_current = false;  // holds the input's current picture
  bool _has_begun = false;
  std::uint32_t _captures = 0;
  std::int64_t _last_time_ns = 0;   // CLOCK_MONOTONIC
  std::int64_t _input_time_ns = 0;  // since the start of the input; stands still while stopped
};

}  // namespace tessel::rtos
