// The H.264 encoder, "h264-encoder-dma": a byte stream with start codes, one access unit a
// picture, no delay. Its parameters, besides those in EncoderParams.h:
//
// clang-format off
//   goptype  picture types from the IDR picture on, "I" and "P"; the last letter holds until the GOP
//            ends. "IPPP" unless given; "I": intra pictures only
//   gop      pictures from one IDR picture to the next, 1..65535; 30 unless given
// clang-format on
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ConstantRate.h"
#include "Element.h"
#include "EncoderParams.h"
#include "EncoderReport.h"
#include "QpPolicy.h"

struct x264_t;

namespace tessel::rtos {

class H264Encoder : public Element {
 public:
  [[nodiscard]] bool Open(const Context& context, const AttrSet& params, Media& media,
                          std::string& error) override;
  // The next picture is an IDR picture.
  void Start() override;
  Verdict Process(Unit& unit) override;
  void Stop() override { _report.Stop(); }
  void Follow(QpPolicy& policy) override { _policy = &policy; }

 private:
  enum class Kind { kIdr, kIntra, kInter };
  struct Close {
    void operator()(x264_t* encoder) const;
  };

  bool ReadParams(const Context& context, const AttrSet& params, std::string& error);
  bool OpenLibrary(const Media& media, std::string& error);
  bool Describe(Media& media, std::string& error) const;
  Kind NextKind(const RateControl& control);
  int ChooseQp(const Unit& unit, const PictureToCode& picture);
  Verdict Encode(Unit& unit, Kind kind);

  // Constant after Open.
  std::string _gop_type = "IPPP";
  int _gop = 30;
  EncoderParams _params;
  std::unique_ptr<x264_t, Close> _encoder;
  std::unique_ptr<ConstantRate> _own_policy;
  QpPolicy* _policy = nullptr;  // its own, or that of an element behind

  // Chain thread only.
  ComplexityMeter _complexity;
  EncoderReport _report;
  bool _wants_idr = true;
  bool _knows_requests = false;
  std::uint32_t _requests = 0;  // key-frame requests seen
  int _since_idr = 0;           // place of the next picture in its GOP
  std::int64_t _pictures = 0;
};

}  // namespace tessel::rtos
