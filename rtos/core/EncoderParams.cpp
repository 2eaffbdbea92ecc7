#include "EncoderParams.h"

#include <algorithm>
#include <vector>

#include "ElementParams.h"
#include "quill/Hash.h"

namespace tessel::rtos {

bool EncoderParams::Read(const Context& context, const AttrSet& params,
                         std::initializer_list<std::string_view> further, std::string& error) {
  constexpr int kMostRate = 1000;
  constexpr int kMostClock = 1'000'000'000;
  int clock = 0;
  frames_per_second = context.FramesPerSecond();
  std::vector<std::string_view> known = {"name", "qp", "vbrc", "fr", "clk", "clock"};
  known.insert(known.end(), further);
  if (!CheckKnown(params, known, error) || !ReadInt(params, "qp", 0, kMostQp, qp, error) ||
      !ReadInt(params, "fr", 1, kMostRate, frames_per_second, error) ||
      !ReadInt(params, "clk", 0, kMostClock, clock, error) ||
      !ReadInt(params, "clock", 0, kMostClock, clock, error)) {
    return false;
  }
  const char* address = params.Get("vbrc");
  if (address == nullptr) return true;
  block = context.Block(address, error);
  if (block == nullptr) return false;
  // The block of a snapshot, whose extra area holds the URL of the next file.
  counts_frames = block->extra_user.load(std::memory_order_relaxed) !=
                  quill::base::Hash(quill::stream::kUrlOwner);
  return true;
}

int EncoderParams::QpOf(const Unit& unit) const {
  return std::clamp(block == nullptr ? qp : unit.control.qp, 0, kMostQp);
}

}  // namespace tessel::rtos
