// The AAC encoder, "aac-encoder". A unit is one frame of 1024 samples of each channel behind its
// ADTS header; a block gives one unit or none. Its parameters:
//
//   name      any text; only for people
//   profile   LC, also called AAC-LC or low: the only one
//   br        8000..576000 bits/s, 128000. AAC allows 6 bits a sample; a higher
//             rate is reduced to that. Plain sounds take fewer bits than asked
//   ch        1..2 channels; absent: as many as come in
//   bw        Hz up to which sound is kept, to about 300 Hz, at most half the sample rate; 0: the
//             encoder chooses
//
// A decoder makes the samples of one frame with the help of the frame before. So the first unit
// stands for the 1024 samples of silence before the sound. The time of a unit is that of the first
// sample that a decoder makes of it; so decoded samples have the times of the samples that came in.
// Missing captures are replaced by silence up to the end of the frame, and the next frame begins
// with the next capture. Frames of pure tones with peaks above 40 % of
// full scale get a soft noise of -65 dB of full scale at 128 kbit/s and 48 kHz, and -50 dB at the
// most.
#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <string>

#include "Element.h"
#include "Libraries.h"
#include "ToneSoftener.h"

namespace tessel::rtos {

class AacEncoder : public Element {
 public:
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  void Start() override;
  Verdict Process(Unit& unit) override;
  bool KeepsBack() const override { return _is_used && (!_is_draining || !_times_ns.empty()); }
  // Gives the last frames; silence fills up the very last one.
  Verdict Drain(Unit& unit) override;

 private:
  [[nodiscard]] bool ReadParams(const AttrSet& params, const Media& media, std::string& error);
  // Makes the encoder anew: it cannot be reset.
  [[nodiscard]] bool MakeCodec();
  void Describe(Media& media) const;
  // Time that so many frames of samples take.
  std::int64_t DurationNs(int samples) const;

  // These add to the frame being filled, and hand it over once it is full. False when the encoder
  // fails.
  [[nodiscard]] bool Add(std::span<const std::int16_t> samples, std::int64_t time_ns);
  [[nodiscard]] bool AddSilence(int samples);
  // Fills the gap between the samples so far and those of `time_ns` with silence.
  [[nodiscard]] bool Bridge(std::int64_t time_ns);
  [[nodiscard]] bool SendFull();
  // The encoder's next frame. kNeedMore: it needs more samples; kEnd: there are no more frames.
  Verdict Receive(Unit& unit);
  Verdict Write(Unit& unit);

  // Constant after Open.
  int _rate = 0;                // samples/s of each channel
  int _rate_index = 0;          // what stands for it in headers
  int _input_channels = 0;      // that come
  int _channels = 0;            // that are coded
  int _bit_rate_bps = 128'000;  // as asked
  int _bandwidth_hz = 0;        // 0: the encoder's choice

  // Chain thread, once open.
  CodecPtr _codec;
  FramePtr _frame;  // being filled
  PacketPtr _packet;
  ToneSoftener _softener;
  int _filled = 0;                     // samples of each channel in _frame
  std::int64_t _frame_ns = 0;          // time of its first sample
  std::int64_t _next_ns = 0;           // when the next block should begin
  std::deque<std::int64_t> _times_ns;  // of the units that the encoder has not given yet
  bool _is_used = false;               // it has seen samples, or their end
  bool _is_draining = false;           // the end of the input was sent to it
};

}  // namespace tessel::rtos
