#include "quill/Message.h"

namespace quill::base {

bool IMessageProcesser::SendMessage(const char* text, const Orient& orient, const char* extra) {
  if (text == nullptr) return false;
  // Counted objects do not live on the stack: a receiver may keep the message.
  const std::unique_ptr<Message, Releaser> message(new Message(text, extra));
  return static_cast<object*>(this)->Dispatch(*message, orient);  // every one is an object
}

void IMessageProcesser::RegisterMessageProcessCallback(
    const std::function<bool(Message&)>& callback) {
  auto fresh = callback ? std::make_shared<const Callback>(callback) : nullptr;
  const std::lock_guard lock(_callback_mutex);
  _callback.swap(fresh);  // the former one goes with its last run
}

bool IMessageProcesser::RunCallback(Message& message) const {
  std::shared_ptr<const Callback> callback;
  {
    const std::lock_guard lock(_callback_mutex);
    callback = _callback;
  }
  return callback != nullptr && (*callback)(message);
}

}  // namespace quill::base
