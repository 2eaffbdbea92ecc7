// The end of a chain that may only run a few units ahead of Linux.
#pragma once

#include "ShmSink.h"

namespace tessel::rtos {

// "FifoSink": what ShmSink is told, and max, the most units that Linux has not given back, 2..64
// and 2 unless given.
class FifoSink : public ShmSink {
 public:
  bool Open(const Context& context, const AttrSet& params, Media& media,
            std::string& error) override;
};

}  // namespace tessel::rtos
