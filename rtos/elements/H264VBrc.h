// Makes the H.264 encoder in front follow a variable bit rate. Pictures pass unchanged.
//
//   H264VBrc   vbrc   address of the rate-control block; required
//              name   any text; only for people
#pragma once

#include <memory>

#include "Element.h"
#include "VariableRate.h"

namespace tessel::rtos {

class H264VBrc : public Element {
 public:
  // Refuses a chain without an H.264 encoder in front.
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  Verdict Process(Unit&) override { return Verdict::kPass; }
  QpPolicy* Policy() override { return _rate.get(); }

 private:
  std::unique_ptr<VariableRate> _rate;  // constant after Open
};

}  // namespace tessel::rtos
