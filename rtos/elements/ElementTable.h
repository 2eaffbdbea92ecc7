// The elements of this real-time side.
#pragma once

#include <span>

#include "Element.h"

namespace tessel::rtos {

// One row a name. Any thread.
std::span<const ElementRow> ElementTable();

}  // namespace tessel::rtos
