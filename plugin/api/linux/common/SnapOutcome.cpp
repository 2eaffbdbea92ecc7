#include "SnapOutcome.h"

#include <string>

namespace tessel::dualos {

SnapOutcome::Notice SnapOutcome::Heed(const quill::base::Message& message) {
  const char* text = nullptr;
  const std::string note = message.GetStr("extra", text) && text != nullptr ? text : "";
  if (note == "newframe") return Notice::kNewFrame;
  if (note == "failed") {
    ++_failures;
    return Notice::kFailed;
  }
  if (note != "ended") return Notice::kOther;
  _is_over = true;
  return Notice::kEnded;
}

}  // namespace tessel::dualos
