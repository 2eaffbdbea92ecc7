#include "EncoderParams.h"

#include <algorithm>
#include <vector>

#include "KnownParams.h"

namespace tessel::rtos {

bool EncoderParams::Read(const Context& context, const AttrSet& params,
                         std::initializer_list<std::string_view> further, std::string& error) {
  constexpr int kMostRate = 1000;
  constexpr int kMostClock = 1'000'000'000;
  int clock = 0;
  frames_per_second = context.FramesPerSecond();
  std::vector<std::string_view> known = {"name", "qp", "vbrc", "fr", "clk"};
  known.insert(known.end(), further);
  if (!CheckKnown(params, known, error) || !ReadInt(params, "qp", 0, kMostQp, qp, error) ||
      !ReadInt(params, "fr", 1, kMostRate, frames_per_second, error) ||
      !ReadInt(params, "clk", 0, kMostClock, clock, error)) {
    return false;
  }
  const char* address = params.Get("vbrc");
  if (address == nullptr) return true;
  block = context.Block(address, error);
  return block != nullptr;
}

int EncoderParams::QpOf(const Unit& unit) const {
  return std::clamp(block == nullptr ? qp : unit.control.qp, 0, kMostQp);
}

}  // namespace tessel::rtos
