#include "quill/Message.h"

#include <memory>

namespace quill::base {

Message::Message(const char* text, const char* extra) : _text(text == nullptr ? "" : text) {
  AddProperty(
      std::make_unique<TProperty<std::string>>("text", [this](const object*, std::string& out) {
        out = _text;
        return true;
      }));
  if (extra != nullptr) AddValue<std::string>("extra", extra);
}

}  // namespace quill::base
