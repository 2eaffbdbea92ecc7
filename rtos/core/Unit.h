// What moves through a chain, and what its elements agree on before it moves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "Picture.h"
#include "quill/AttrSet.h"
#include "quill/MediaKeys.h"
#include "RateControl.h"

namespace tessel::rtos {

namespace media_key = quill::stream::media_key;
using quill::base::AttrSet;

// One picture or one block of sound on its way through the chain. Chain thread.
struct Unit {
  std::uint32_t capture = 0;   // number of the capture; missed captures have numbers too
  std::uint32_t missed = 0;    // captures that came too late since the unit before
  std::uint32_t sequence = 0;  // number of the unit; captures skipped on purpose have none
  // CLOCK_MONOTONIC at capture. Of sound: when the first sample was heard; behind an encoder, the
  // first sample that a decoder makes of the result.
  std::int64_t time_ns = 0;
  int frames_per_second = 0;  // planned rate of the units at this place of the chain
  bool is_key = false;
  int qp = 0;       // that the encoder used
  Picture picture;  // raw video, in memory of the source or in the slot; valid until the next one
  // Sound, channels interleaved, in memory of the element in front; valid until its next block.
  std::span<const std::int16_t> samples;
  // The reserved slot; the last writing element fills it. Empty: the result is to be dropped, which
  // happens with sound only.
  std::span<std::uint8_t> room;
  std::size_t size_bytes = 0;  // of the result, at the front of `room`
  RateControl control;         // all zero in a chain without a rate-control block
};

// The media between two elements of an open chain.
struct Media {
  int width = 0;               // pixels
  int height = 0;              // pixels
  int frames_per_second = 0;   // nominal
  int sample_rate = 0;         // of sound, samples/s of each channel
  int channels = 0;            // of sound
  std::size_t unit_bytes = 0;  // upper bound of one unit
  // What Linux is told: "codec", "w", "h" and what the codec adds. Bytes are written as lower-case
  // hexadecimal digits.
  AttrSet description;
};

}  // namespace tessel::rtos
