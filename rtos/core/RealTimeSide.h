// What all connections of the process share.
#pragma once

#include <span>

#include "AudioDevices.h"
#include "Directory.h"
#include "Element.h"

namespace tessel::rtos {

// Any thread, as its parts are.
struct RealTimeSide {
  const std::span<const ElementRow> elements;
  AudioDevices audio = AudioDevices::Usual();
  Directory directory = {};
};

}  // namespace tessel::rtos
