#include "SnapOutcome.h"

#include <chrono>
#include <string>
#include <thread>

namespace tessel::dualos {
namespace {

constexpr std::chrono::milliseconds kPoll(10);

}  // namespace

bool SnapOutcome::Heed(const quill::base::Message& message) {
  const char* text = nullptr;
  const std::string note = message.GetStr("extra", text) && text != nullptr ? text : "";
  if (note == "ended") _is_over = true;
  if (note == "failed" || note == "ended") ++_failures;  // the end is one even when all begins anew
  return note == "newframe";
}

bool SnapOutcome::Await(std::uint32_t failures, const std::function<bool()>& is_done) const {
  for (;;) {
    // Read first: the picture that came before the end then counts.
    const bool is_hopeless = _is_over || _failures != failures;
    if (is_done()) return true;
    if (is_hopeless) return false;
    std::this_thread::sleep_for(kPoll);
  }
}

}  // namespace tessel::dualos
