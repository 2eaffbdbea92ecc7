#include "FrameTrigger.h"

#include "KnownParams.h"

namespace tessel::rtos {

bool FrameTrigger::Open(const Context& context, const AttrSet& params, Media&, std::string& error) {
  const VbrcBlock* block = nullptr;
  if (!CheckKnown(params, {"name", "vbrc"}, error) || !ReadBlock(context, params, block, error)) {
    return false;
  }
  _served = ReadRateControl(*block).trigger_req;
  return true;
}

Verdict FrameTrigger::Admit(const Unit& unit) {
  return unit.control.trigger_req == _served ? Verdict::kHold : Verdict::kPass;
}

Verdict FrameTrigger::Process(Unit&) {
  ++_served;
  return Verdict::kPass;
}

}  // namespace tessel::rtos
