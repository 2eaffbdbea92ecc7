// A text message between objects.
#pragma once

#include <string>

#include "quill/Properties.h"

namespace quill::base {

// A message on its way; its body is the text property "text", a sender's note is "extra".
class QUILL_PUBLIC Message : public Object {
 public:
  Message(const char* text, const char* extra);
  const std::string& Text() const { return _text; }

 private:
  std::string _text;
};

}  // namespace quill::base
