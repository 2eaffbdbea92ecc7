// The state of a stream as its client sees it.
#pragma once

namespace tessel::api::streaming::common {

// The host's stream status itself, value for value, in rising order: what is above `kPlay` holds
// everything that playing holds.
enum class State : int {
  kNull = 0,   // nothing exists on the real-time side
  kReady = 1,  // both halves exist, the media description is known, no frames move
  kPlay = 2,   // frames move
  kPause = 3,  // as kPlay, the delivery held
};

}  // namespace tessel::api::streaming::common
