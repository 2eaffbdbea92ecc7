// The board's camera sensor: a test pattern, a media file or a V4L2 camera.
//
//   pv-yuv-src-adv   w, h   picture size, even numbers in 16..7680 and 16..4320; required
//                    fmt    "420V50", planar 4:2:0, the only one; optional
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Element.h"
#include "MediaInput.h"
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

// Memory for one picture: aligned to 64 bytes, lines a multiple of 32 bytes apart.
class PictureBuffer {
 public:
  PictureBuffer() = default;
  PictureBuffer(int width, int height);
  const Picture& Get() const { return _picture; }

 private:
  struct Free {
    void operator()(std::uint8_t* memory) const;
  };
  std::unique_ptr<std::uint8_t[], Free> _memory;
  Picture _picture;
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
  bool OpenSensor(const Board& board, std::string& error);
  Verdict AdvanceInput();
  Verdict Render(const Picture& picture);

  // Constant after Open.
  int _width = 0;
  int _height = 0;
  int _nominal_rate = 0;  // frames/s
  bool _paced = true;
  bool _writes_slot = false;  // nobody behind makes the final bytes
  std::size_t _picture_bytes = 0;
  std::unique_ptr<TestPattern> _pattern;  // exactly one of these two
  std::unique_ptr<MediaInput> _input;

  // Chain's thread only.
  CaptureSchedule _schedule;
  PictureBuffer _buffer;            // empty where pictures are made in the slot
  bool _buffer_is_current = false;  // holds the input's current picture
  bool _has_begun = false;
  std::uint32_t _captures = 0;
  std::int64_t _last_time_ns = 0;   // CLOCK_MONOTONIC
  std::int64_t _input_time_ns = 0;  // since the start of the input; stands still while stopped
};

}  // namespace tessel::rtos
