#include "EventRouter.h"

#include "messages/Applications.h"
#include "MessageThread.h"

namespace quill::stream {

void EventRouter::OnEvent(const std::string& text) {
  base::AttrSet untrusted;
  tessel::link::Event event;
  std::string error;
  if (!untrusted.Parse(text.c_str()) || !Read(untrusted, event, error)) return;
  const std::string words = event.text.value_or(tessel::link::WordOf(event.event));
  for (const auto& session : _applications.SessionsOf(event.object_base.number)) {
    session->End();
    PostMessage([session, words] { session->Tell(words); });
  }
}

void EventRouter::OnDisconnect() {
  for (const auto& [handle, application] : _applications.TakeAll()) {
    for (const auto& block : application.blocks) {
      // The encoder is gone and can no longer store its own measured rate.
      if (VbrcBlock* vbrc = block->Vbrc()) vbrc->bitrate.store(0, std::memory_order_relaxed);
    }
    for (const auto& session : application.sessions) {
      session->End();
      PostMessage([session] { session->Tell(kLoss); });
    }
  }
}

}  // namespace quill::stream
