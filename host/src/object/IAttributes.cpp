#include "quill/IAttributes.h"

#include "quill/Debug.h"

namespace quill::base {

bool IAttributes::fromString(const char* text) {
  AttrSet set;
  if (stream::Failed(!set.Parse(text), "!set.Parse(text)", set.Error())) return false;
  return fromAttrSet(set);
}

bool IAttributes::toString(std::string& text) const {
  AttrSet set;
  if (!toAttrSet(set)) return false;
  text = set.ToString(false);
  return true;
}

std::string IAttributes::ToString() const {
  std::string text;
  toString(text);
  return text;
}

}  // namespace quill::base
