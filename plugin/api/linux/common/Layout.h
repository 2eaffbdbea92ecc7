// Composes the layout strings of the sources. A layout string reads like the calls that compose it.
// The real-time side prescribes the names of elements and the order of keys.
#pragma once

#include <string>

#include "quill/ostream_string.h"
#include "quill/VbrcBlock.h"
#include "tessel/H264MediaInfo.h"

namespace tessel::dualos {

// One chain, from the camera or the microphone to the shared-memory sink. One thread.
class Layout {
 public:
  // A chain with a rate-control block. Elements that read the block get its address; encoders also
  // get its present values.
  Layout(const quill::stream::VbrcBlock& block, int width, int height);
  // A chain of raw pictures, without a block.
  Layout(int width, int height, const std::string& format);

  // A chain of sound, without a block; `params` are those of the microphone.
  static Layout Microphone(const std::string& params) { return Layout("pv-pcm-src:" + params); }

  Layout& PcmFilter(int samples_per_second);
  Layout& Channels(int channels);  // of PcmFilter()
  Layout& AacEncoder(const std::string& profile, int bit_rate_bps, int channels, int bandwidth_hz);
  // REQUIRES, for these up to H264VBrc(): the chain has a block.
  Layout& FrameTrigger();
  Layout& FrameDroper();
  Layout& H264Encoder(const api::streaming::common::H264MediaInfo& info);
  Layout& JpegEncoderDma();
  Layout& JpegEncoder();
  Layout& SnapEncoder();  // JPEG for single pictures
  Layout& H264VBrc();
  // Ends the chain and returns the whole text.
  std::string ShmSink(const std::string& session_name);

 private:
  explicit Layout(const std::string& source);
  static std::string Camera(int width, int height);
  // The keys that all encoders have in common, after their own.
  void EncoderClock();

  const quill::stream::VbrcBlock& _block;  // borrows; all zero in a chain without one
  const std::string _address;              // of the block
  quill::base::ostream_string _text;
};

}  // namespace tessel::dualos
