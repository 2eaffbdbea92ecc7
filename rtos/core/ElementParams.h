// Parameters of elements: read, checked, refused by name. Connection thread.
#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include "Element.h"

namespace tessel::rtos {

// Refuses parameters that the element does not have: false with `error` naming the first one that
// is not among `known`.
[[nodiscard]] bool CheckKnown(const AttrSet& params, std::span<const std::string_view> known,
                              std::string& error);
[[nodiscard]] inline bool CheckKnown(const AttrSet& params,
                                     std::initializer_list<std::string_view> known,
                                     std::string& error) {
  return CheckKnown(params, std::span(known.begin(), known.end()), error);
}
// Reads an integer parameter in `least`..`most` into `value`; an absent one keeps `value`. False
// with `error` naming parameter, value and range.
[[nodiscard]] bool ReadInt(const AttrSet& params, const char* key, int least, int most, int& value,
                           std::string& error);
// The block that vbrc= names; the parameter is required. False with `error` set.
[[nodiscard]] bool ReadBlock(const Context& context, const AttrSet& params, VbrcBlock*& block,
                             std::string& error);
// The hexadecimal digits of `bytes`, as descriptions have them.
std::string Hex(std::span<const std::uint8_t> bytes);

}  // namespace tessel::rtos
