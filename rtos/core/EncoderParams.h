// What every encoder is told in a layout:
//
//   name   any text; only for people
//   qp     0..51; 0, the default, leaves it to the encoder
//   vbrc   address of the rate-control block, whose words then count instead of qp
//   fr     nominal frames/s, 1..1000
//   clk    clock of the hardware in kHz; without meaning here. "clock" is the same
#pragma once

#include <initializer_list>
#include <string_view>

#include "Element.h"

namespace tessel::rtos {

inline constexpr int kMostQp = 51;

struct EncoderParams {
  int qp = 0;                  // unless there is a block
  int frames_per_second = 0;   // nominal
  VbrcBlock* block = nullptr;  // borrows for its lifetime; null: steered by the parameters
  // False where Linux counts the frames, which are files there.
  bool counts_frames = true;

  // Reads what every encoder is told. False with `error` set, also on a parameter that is neither
  // one of those nor in `further`.
  [[nodiscard]] bool Read(const Context& context, const AttrSet& params,
                          std::initializer_list<std::string_view> further, std::string& error);
  // The QP asked for this picture, 0..51. 0: none.
  int QpOf(const Unit& unit) const;
};

}  // namespace tessel::rtos
