// Lets single frames through: one for each request that the client counts up in the rate-control
// block. Requests that come faster than captures are served by the captures that follow; those made
// while no chain plays, by the next one. So the number of requests served stands in the block, too.
//
//   FrameTrigger   vbrc   address of the rate-control block; required
//                  name   any text; only for people
#pragma once

#include <cstdint>

#include "Element.h"

namespace tessel::rtos {

class FrameTrigger : public Element {
 public:
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  Verdict Admit(const Unit& unit) override;
  Verdict Process(Unit& unit) override;

 private:
  VbrcBlock* _block = nullptr;  // borrows for its lifetime
  std::uint32_t _served = 0;    // requests; runs over as the count in the block does
};

}  // namespace tessel::rtos
