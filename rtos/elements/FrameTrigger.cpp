#include "FrameTrigger.h"

#include "ElementParams.h"

namespace tessel::rtos {

bool FrameTrigger::Open(const Context& context, const AttrSet& params, Media&, std::string& error) {
  if (!CheckKnown(params, {"name", "vbrc"}, error) || !ReadBlock(context, params, _block, error)) {
    return false;
  }
  _served = static_cast<std::uint32_t>(_block->trigger_served.load(std::memory_order_relaxed));
  return true;
}

Verdict FrameTrigger::Admit(const Unit& unit) {
  return unit.control.trigger_req == _served ? Verdict::kNotTriggered : Verdict::kPass;
}

Verdict FrameTrigger::Process(Unit&) {
  _block->trigger_served.store(static_cast<std::int32_t>(++_served), std::memory_order_relaxed);
  return Verdict::kPass;
}

}  // namespace tessel::rtos
