#include "StreamControl.h"

#include <string>

#include "quill/Message.h"

namespace tessel::api::streaming::common {

using quill::base::Message;
using quill::base::Orient;

std::function<bool(Message&)> TextCallback(const std::function<bool(const char*)>& cb) {
  return [cb](Message& message) {
    std::string text;
    message.Get("text", text);
    return cb(text.c_str());
  };
}

bool StreamControl::Set(const char* str) { return fromString(str); }

bool StreamControl::ChangeUp(State s) { return StatusUp(s); }

bool StreamControl::ChangeDown(State s) { return StatusDown(s); }

bool StreamControl::ChangeState(State s) { return StatusChange(s); }

State StreamControl::CurrentState() const { return CurrStatus(); }

void StreamControl::RegisterMessageCallback(const std::function<bool(const char*)>& cb) {
  RegisterMessageProcessCallback(TextCallback(cb));
}

bool StreamControl::SendMessage(const char* msg) {
  return IMessageProcesser::SendMessage(msg, Orient::kChildren, nullptr);
}

}  // namespace tessel::api::streaming::common
