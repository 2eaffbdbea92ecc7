#include "Element.h"

namespace tessel::rtos {

RateControl ReadRateControl(const VbrcBlock& block) {
  const auto read = [](const VbrcBlock::Word& word) {
    return word.load(std::memory_order_relaxed);
  };
  RateControl control;
  control.bitrate_max = read(block.bitrate_max);
  control.bitrate_min = read(block.bitrate_min);
  control.bitrate_target = read(block.bitrate_target);
  control.framerate = read(block.framerate);
  control.framerate_max = read(block.framerate_max);
  control.framerate_min = read(block.framerate_min);
  control.qp = read(block.qp);
  control.qp_max = read(block.qp_max);
  control.qp_min = read(block.qp_min);
  control.keyframe_req = static_cast<std::uint32_t>(read(block.keyframe_req));
  control.trigger_req = static_cast<std::uint32_t>(read(block.trigger_req));
  return control;
}

bool ReadInt(const AttrSet& params, const char* key, int least, int most, int& value,
             std::string& error) {
  const char* text = params.Get(key);
  if (text == nullptr) return true;
  int number = 0;
  if (quill::base::ConvertToImpl(text, number) && number >= least && number <= most) {
    value = number;
    return true;
  }
  error = std::string(key) + "=" + text + " outside " + std::to_string(least) + ".." +
          std::to_string(most);
  return false;
}

bool ReadBlock(const Context& context, const AttrSet& params, VbrcBlock*& block,
               std::string& error) {
  const char* address = params.Get("vbrc");
  block = address == nullptr ? nullptr : context.Block(address, error);
  if (address == nullptr) error = "vbrc is missing";
  return block != nullptr;
}

std::string Hex(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace tessel::rtos
