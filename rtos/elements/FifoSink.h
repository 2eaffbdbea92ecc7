// The end of a chain that runs only a few units ahead of its client.
//
//   FifoSink   max   most units that the client may hold, 2..63; 2 unless given
//              and the parameters of ShmSink
#pragma once

#include "ShmSink.h"

namespace tessel::rtos {

class FifoSink : public ShmSink {
 public:
  bool Open(const Context& context, const AttrSet& params, Media& media,
            std::string& error) override;
};

}  // namespace tessel::rtos
