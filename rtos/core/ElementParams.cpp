#include "ElementParams.h"

#include <algorithm>

namespace tessel::rtos {

bool CheckKnown(const AttrSet& params, std::span<const std::string_view> known,
                std::string& error) {
  for (const auto& pair : params.Pairs()) {
    if (std::find(known.begin(), known.end(), pair.key) != known.end()) continue;
    error = "unknown parameter \"" + pair.key + "\"";
    return false;
  }
  return true;
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
