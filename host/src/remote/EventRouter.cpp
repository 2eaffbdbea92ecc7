#include "EventRouter.h"

#include <cstring>

#include "MessageThread.h"
#include "quill/ostream_string.h"

namespace quill::stream {

void EventRouter::OnEvent(const std::string& text) {
  base::AttrSet event;
  const char* kind = event.Parse(text.c_str()) ? event.Get("event") : nullptr;
  const std::uint64_t handle = base::ReadHandle(event.Get("object_base"));
  if (kind == nullptr || handle == 0) return;
  const bool is_last = std::strcmp(kind, "end") == 0 || std::strcmp(kind, "failed") == 0;
  const std::string words = event.Get("text") == nullptr ? kind : event.Get("text");
  for (const auto& session : _applications.SessionsOf(handle)) {
    if (is_last) session->End();
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
