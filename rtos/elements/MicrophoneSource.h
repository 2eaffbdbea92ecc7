// The microphone, at its own rate and channels, with its volume and automatic gain.
//
//   pv-pcm-src   id   number of the microphone: 1, the default; 0 is the same
//
// When paced it behaves like a sound card: a block of 20 ms is available once its last sample is
// captured. A delayed chain finds at most the last half second; older blocks are lost and leave a
// gap in the sequence and in the time stamps. A file or a tone goes on where it was.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Element.h"
#include "SoundInput.h"
#include "SoundLevel.h"

namespace tessel::rtos {

class MicrophoneSource : public Source {
 public:
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  void Start() override;
  Verdict Await(Unit& unit, StopSignal& stop) override;
  Verdict Process(Unit& unit) override;
  Verdict Skip(Unit& unit) override { return Process(unit); }
  bool IsLive() const override { return _paced; }
  bool IsContinuous() const override { return true; }

 private:
  bool AwaitClock(StopSignal& stop);
  SoundInput::Step ReadBlock(StopSignal& stop);
  std::int64_t TimeOf(std::int64_t frame) const;
  void CountLost();

  // Constant after Open.
  const AudioDevice* _device = nullptr;  // borrowed; its controls change at any time
  bool _paced = true;
  int _rate = 0;          // samples/s of each channel
  int _block_frames = 0;  // samples of each channel in a block
  std::unique_ptr<SoundInput> _input;
  std::optional<SoundLevel> _level;

  // Chain thread only.
  std::vector<std::int16_t> _block;
  std::int64_t _start_ns = 0;   // CLOCK_MONOTONIC of the first sample since Start()
  std::int64_t _frames = 0;     // captured since Start(), lost ones included
  std::int64_t _time_ns = 0;    // of the first sample of the block
  std::int64_t _next_ns = 0;    // of the one behind the last block; 0 before the first
  std::uint32_t _captures = 0;  // lost ones included
};

}  // namespace tessel::rtos
