// A text message between objects.
#pragma once

#include <string>

#include "quill/Properties.h"

namespace quill::base {

// Properties: "text", the body; "extra", the sender's note, if it gave one.
class QUILL_PUBLIC Message : public Object {
 public:
  Message(const char* text, const char* extra);
  const std::string& Text() const { return _text; }

 private:
  std::string _text;
};

}  // namespace quill::base
