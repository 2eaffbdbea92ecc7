// The chains that the sources ask for, as text. A layout string reads like the calls that
// compose it; element names and the order of keys are what the real-time side was built for.
#pragma once

#include <string>

#include "quill/ostream_string.h"
#include "quill/VbrcBlock.h"
#include "tessel/H264MediaInfo.h"

namespace tessel::dualos {

// One chain, from the camera or the microphone to the shared-memory sink. One thread.
class Layout {
 public:
  // Elements that are steered get the address of `block`, and the encoder what stands in it now.
  Layout(const quill::stream::VbrcBlock& block, int width, int height);
  // A chain of raw pictures, which nothing steers.
  Layout(int width, int height, const std::string& format);

  // A chain of sound, which nothing steers; `params` of the microphone.
  static Layout Microphone(const std::string& params) { return Layout("pv-pcm-src:" + params); }

  Layout& PcmFilter(int samples_per_second);
  Layout& Channels(int channels);  // of the filter
  Layout& AacEncoder(const std::string& profile, int bit_rate_bps, int channels, int bandwidth_hz);
  // REQUIRES, the rest but ShmSink(): the chain is steered by a block.
  Layout& FrameTrigger();
  Layout& FrameDroper();
  Layout& H264Encoder(const api::streaming::common::H264MediaInfo& info);
  Layout& JpegEncoderDma();
  Layout& JpegEncoder();
  Layout& SnapEncoder();  // JPEG for single pictures
  Layout& H264VBrc();
  // The end of every chain: the whole text.
  std::string ShmSink(const std::string& session_name);

 private:
  explicit Layout(const std::string& source);
  static std::string Camera(int width, int height);
  // What the encoders have in common, behind their own keys.
  void EncoderClock();

  const quill::stream::VbrcBlock& _block;  // borrows; all zero where nothing is steered
  const std::string _address;              // of the block
  quill::base::ostream_string _text;
};

}  // namespace tessel::dualos
