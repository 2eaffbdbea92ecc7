#include "H264VBrc.h"

#include "ElementParams.h"

namespace tessel::rtos {

bool H264VBrc::Open(const Context& context, const AttrSet& params, Media& media,
                    std::string& error) {
  VbrcBlock* block = nullptr;
  if (!CheckKnown(params, {"name", "vbrc"}, error) || !ReadBlock(context, params, block, error)) {
    return false;
  }
  std::string codec;
  std::string gop_type;
  int gop = 0;
  media.description.Get(media_key::kCodec, codec);
  media.description.Get(media_key::kGopType, gop_type);
  if (codec != "h264" || !media.description.Get(media_key::kGop, gop)) {
    error = "no H.264 encoder in front";
    return false;
  }
  _rate = std::make_unique<VariableRate>(gop, gop_type.find('P') == std::string::npos);
  return true;
}

}  // namespace tessel::rtos
