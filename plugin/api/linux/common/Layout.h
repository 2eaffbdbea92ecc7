// The chains that the video sources ask for, as text. A layout string reads like the calls that
// compose it; element names and the order of keys are what the real-time side was built for.
#pragma once

#include <string>

#include "quill/ostream_string.h"
#include "quill/VbrcBlock.h"
#include "tessel/H264MediaInfo.h"

namespace tessel::dualos {

// One chain, from the camera to the shared-memory sink. One thread.
class Layout {
 public:
  // Elements that are steered get the address of `block`, and the encoder what stands in it now.
  Layout(const quill::stream::VbrcBlock& block, int width, int height);
  // A chain of raw pictures, which nothing steers.
  Layout(int width, int height, const std::string& format);

  // REQUIRES, all but ShmSink(): the chain is steered by a block.
  Layout& FrameTrigger();
  Layout& FrameDroper();
  Layout& H264Encoder(const api::streaming::common::H264MediaInfo& info);
  Layout& JpegEncoderDma();
  Layout& JpegEncoder();
  Layout& H264VBrc();
  // The end of every chain: the whole text.
  std::string ShmSink(const std::string& session_name);

 private:
  void Camera(int width, int height);
  // What the encoders have in common, behind their own keys.
  void EncoderClock();

  const quill::stream::VbrcBlock* const _block;  // borrows; null: a chain of raw pictures
  const std::string _address;                    // of the block
  quill::base::ostream_string _text;
};

}  // namespace tessel::dualos
