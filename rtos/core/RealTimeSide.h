// What all connections of the process share.
#pragma once

#include <span>

#include "AudioService.h"
#include "Element.h"
#include "StreamRegistry.h"

namespace tessel::rtos {

// Any thread, as its parts are.
struct RealTimeSide {
  const std::span<const ElementRow> elements;
  AudioService& audio;  // of the board
  StreamRegistry streams = {};
};

}  // namespace tessel::rtos
