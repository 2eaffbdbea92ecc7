// Lets single frames through: one for each request that the client counts up in the rate-control
// block. Requests that come faster than captures are served by the captures that follow.
//
//   FrameTrigger   vbrc   address of the rate-control block; required
//                  name   any text; only for people
#pragma once

#include <cstdint>

#include "Element.h"

namespace tessel::rtos {

// What was asked before the chain was built does not count.
class FrameTrigger : public Element {
 public:
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  Verdict Admit(const Unit& unit) override;
  Verdict Process(Unit& unit) override;

 private:
  std::uint32_t _served = 0;  // requests; runs over as the count in the block does
};

}  // namespace tessel::rtos
