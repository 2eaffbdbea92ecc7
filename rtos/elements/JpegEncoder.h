// The JPEG encoder, "jpeg-encoder-dma", "jpeg-encoder" or "encoder-jpeg": each unit is one
// whole picture, baseline, 4:2:0, JFIF. Its parameters are those in EncoderParams.h.
//
// The quantisers follow the QP by one rule: the luma DC step is that of H.264 at the same QP,
// 0.625 * 2^(QP/6), and all others keep their proportion to it. QP 0 leaves it to the encoder,
// which then takes 20. The bit rate is measured, not controlled. See doc/jpeg.md.
#pragma once

#include <cstdint>
#include <memory>

#include "Element.h"
#include "EncoderParams.h"
#include "EncoderReport.h"

namespace tessel::rtos {

class JpegEncoder : public Element {
 public:
  JpegEncoder();
  ~JpegEncoder() override;
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  void Start() override { _report.Start(); }
  void Stop() override { _report.Stop(); }
  Verdict Process(Unit& unit) override;

 private:
  struct Codec;

  EncoderParams _params;          // constant after Open
  std::unique_ptr<Codec> _codec;  // chain thread, once open
  EncoderReport _report;          // chain thread
};

}  // namespace tessel::rtos
