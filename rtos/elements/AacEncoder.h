// The board's AAC encoder, "aac-encoder". Each unit is one frame of 1024 samples of each channel
// behind its ADTS header; at most one comes of a block. Its parameters:
//
//   name      any text; only for people
//   profile   LC, also called AAC-LC or low: the one there is
//   br        8000..576000 bits/s, 128000. AAC allows 6 bits a sample: what exceeds that is brought
//             down to it. Plain sounds take less than what is asked
//   ch        1..2 channels; absent: as it comes
//   bw        Hz up to which sound is kept, to about 300 Hz, at most half the sample rate; 0: as
//             the encoder likes
//
// A decoder makes the samples of one frame with the help of the frame before. So the first unit
// stands for the 1024 samples before the sound, which are silence. The time of a unit is that of
// the first sample that comes out of a decoder for it: sample by sample this agrees with what went
// in. Where captures are missing, silence takes their place up to the end of the frame, and the
// next frame begins with what was captured next. Frames of pure tones with peaks above 40 % of
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
  // The encoder cannot be taken back to its beginning: it is made anew.
  [[nodiscard]] bool MakeCodec();
  void Describe(Media& media) const;
  // Time that so many frames of samples take.
  std::int64_t DurationNs(int samples) const;

  // These add to the frame being filled, and hand it over once it is full. False when the encoder
  // fails.
  [[nodiscard]] bool Add(std::span<const std::int16_t> samples, std::int64_t time_ns);
  [[nodiscard]] bool AddSilence(int samples);
  // Fills what is missing between the samples so far and those of `time_ns`.
  [[nodiscard]] bool Bridge(std::int64_t time_ns);
  [[nodiscard]] bool SendFull();
  // The encoder's next frame. kNeedMore: it wants more samples; kEnd: there are no more.
  Verdict Receive(Unit& unit);
  Verdict Write(Unit& unit);

  // Constant after Open.
  int _rate = 0;                // samples/s of each channel
  int _rate_index = 0;          // what stands for it in headers
  int _input_channels = 0;      // that come
  int _channels = 0;            // that are coded
  int _bit_rate_bps = 128'000;  // as asked
  int _bandwidth_hz = 0;        // 0: the encoder's choice

  // Chain's thread, once open.
  CodecPtr _codec;
  FramePtr _frame;  // being filled
  PacketPtr _packet;
  ToneSoftener _softener;
  int _filled = 0;                     // samples of each channel in _frame
  std::int64_t _frame_ns = 0;          // time of its first sample
  std::int64_t _next_ns = 0;           // when the next block should begin
  std::deque<std::int64_t> _times_ns;  // of the units that the encoder still owes
  bool _is_used = false;               // it has seen samples, or their end
  bool _is_draining = false;           // it has been told that no more come
};

}  // namespace tessel::rtos
