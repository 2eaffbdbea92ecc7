// The parameters that every picture encoder has:
//
//   name   any text; only for people
//   qp     0..51; 0, the default, leaves it to the encoder
//   vbrc   address of the rate-control block, whose words then replace qp
//   fr     nominal frames/s, 1..1000
//   clk    clock of the hardware in kHz; ignored. "clock" is the same
#pragma once

#include <initializer_list>
#include <string_view>

#include "Element.h"

namespace tessel::rtos {

struct EncoderParams {
  int qp = 0;                  // where there is no block
  int frames_per_second = 0;   // nominal
  VbrcBlock* block = nullptr;  // borrowed for the chain's life; null: steered by the parameters
  // False where Linux itself counts the frames, as files.
  bool counts_frames = true;

  // False with `error` set, also on a parameter that is neither listed above nor in `further`.
  // Connection thread.
  [[nodiscard]] bool Read(const Context& context, const AttrSet& params,
                          std::initializer_list<std::string_view> further, std::string& error);
  // The QP asked for this picture, 0..51; 0: the encoder decides.
  int QpOf(const Unit& unit) const;
};

}  // namespace tessel::rtos
