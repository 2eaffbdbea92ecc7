#include "SnapOutcome.h"

#include <chrono>
#include <string>
#include <thread>

#include "quill/AttrSet.h"

namespace tessel::dualos {
namespace {

constexpr std::chrono::milliseconds kPoll(10);

// From "failed:url={…},reason={…},request=N".
std::uint32_t RequestOf(const quill::base::Message& message) {
  std::string text;
  unsigned request = 0;
  message.Get("text", text);
  quill::base::AttrSet(text.substr(text.find(':') + 1).c_str()).Get("request", request);
  return request;
}

}  // namespace

bool SnapOutcome::OnMessage(const quill::base::Message& message) {
  const char* text = nullptr;
  const std::string note = message.GetStr("extra", text) && text != nullptr ? text : "";
  if (note == "failed") _last_failed = RequestOf(message);
  if (note == "ended") {
    _is_over = true;
    ++_ends;  // shows the end to a waiting snapshot even after another stream has begun
  }
  return note == "newframe";
}

bool SnapOutcome::Await(std::uint32_t request, std::uint32_t ends,
                        const std::function<bool()>& is_done) const {
  for (;;) {
    // Read before is_done(), so that a picture that came before the end counts. Request numbers
    // wrap around.
    const bool has_failed = static_cast<std::int32_t>(_last_failed - request) >= 0;
    const bool is_hopeless = has_failed || _is_over || _ends != ends;
    if (is_done()) return true;
    if (is_hopeless) return false;
    std::this_thread::sleep_for(kPoll);
  }
}

}  // namespace tessel::dualos
