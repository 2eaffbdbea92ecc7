// Lets one frame through for each request that the client counts in the rate-control block. The
// next captures serve requests that come faster than captures; the next chain serves requests made
// while no chain plays. For that, the number of served requests is kept in the block, too.
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
  VbrcBlock* _block = nullptr;  // borrowed for the chain's life
  std::uint32_t _served = 0;    // requests; wraps like the count in the block
};

}  // namespace tessel::rtos
