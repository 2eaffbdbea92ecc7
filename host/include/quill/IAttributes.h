// Objects as text.
#pragma once

#include <string>

#include "quill/AttrSet.h"

namespace quill::base {

// An object's attributes as text.
class QUILL_PUBLIC IAttributes {
 public:
  virtual ~IAttributes() = default;
  virtual bool fromAttrSet(const AttrSet& set) = 0;
  virtual bool toAttrSet(AttrSet& set) const = 0;

  // Parses and applies; an error is logged with its position.
  bool fromString(const char* text);
  bool toString(std::string& text) const;
  std::string ToString() const;
};

}  // namespace quill::base
