// Refusal of parameters that an element does not know: a typing error in a layout must not go
// unseen.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include "quill/AttrSet.h"

namespace tessel::rtos {

// False with `error` naming the first parameter that is not among `known`.
[[nodiscard]] inline bool CheckKnown(const quill::base::AttrSet& params,
                                     std::span<const std::string_view> known, std::string& error) {
  for (const auto& pair : params.Pairs()) {
    if (std::find(known.begin(), known.end(), pair.key) != known.end()) continue;
    error = "unknown parameter \"" + pair.key + "\"";
    return false;
  }
  return true;
}
[[nodiscard]] inline bool CheckKnown(const quill::base::AttrSet& params,
                                     std::initializer_list<std::string_view> known,
                                     std::string& error) {
  return CheckKnown(params, std::span(known.begin(), known.end()), error);
}

}  // namespace tessel::rtos
