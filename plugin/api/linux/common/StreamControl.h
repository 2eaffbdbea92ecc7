// What every stream object forwards to the host: configuration, state, messages.
#pragma once

#include "quill/Service.h"
#include "tessel/IStreamControl.h"

namespace tessel::api::streaming::common {

// Has no data of its own, so that the functions of IStreamControl come first in the vtable of every
// derived class.
class StreamControl : public virtual IStreamControl, public virtual quill::stream::Service {
 public:
  bool Set(const char* str) override;
  bool ChangeUp(State s) override;
  bool ChangeDown(State s) override;
  bool ChangeState(State s) override;
  State CurrentState() const override;
  void RegisterMessageCallback(const std::function<bool(const char*)>& cb) override;
  bool SendMessage(const char* msg) override;
};

// Wraps a client's callback for host messages: it receives their text. The callback is copied.
std::function<bool(quill::base::Message&)> TextCallback(const std::function<bool(const char*)>& cb);

}  // namespace tessel::api::streaming::common
