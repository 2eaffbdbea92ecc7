// A copy of the words by which Linux steers a chain.
#pragma once

#include <atomic>
#include <cstdint>

#include "quill/VbrcBlock.h"

namespace tessel::rtos {

inline constexpr int kMostQp = 51;  // the coarsest quantiser; the finest is 0

// The rate-control block, read once for each unit: all elements act on the same values.
struct RateControl {
  int bitrate_max = 0;     // bits/s
  int bitrate_min = 0;     // bits/s
  int bitrate_target = 0;  // bits/s
  int framerate = 0;       // frames/s
  int framerate_max = 0;   // frames/s
  int framerate_min = 0;   // frames/s
  int qp = 0;              // 0: rate control decides
  int qp_max = 0;
  int qp_min = 0;
  std::uint32_t keyframe_req = 0;  // running counts of requests
  std::uint32_t trigger_req = 0;
};

// Any thread.
inline RateControl ReadRateControl(const quill::stream::VbrcBlock& block) {
  const auto read = [](const quill::stream::VbrcBlock::Word& word) {
    return word.load(std::memory_order_relaxed);
  };
  RateControl control;
  control.bitrate_max = read(block.bitrate_max);
  control.bitrate_min = read(block.bitrate_min);
  control.bitrate_target = read(block.bitrate_target);
  control.framerate = read(block.framerate);
  control.framerate_max = read(block.framerate_max);
  control.framerate_min = read(block.framerate_min);
  control.qp = read(block.qp);
  control.qp_max = read(block.qp_max);
  control.qp_min = read(block.qp_min);
  control.keyframe_req = static_cast<std::uint32_t>(read(block.keyframe_req));
  control.trigger_req = static_cast<std::uint32_t>(read(block.trigger_req));
  return control;
}

}  // namespace tessel::rtos
