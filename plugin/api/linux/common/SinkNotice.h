// What the sink that writes a file for each picture tells those above it: a message whose note
// ("extra") says what has happened.
#pragma once

#include <cstring>

#include "quill/object.h"

namespace tessel::dualos {

inline bool IsNotice(const quill::base::Message& message, const char* kind) {
  const char* note = nullptr;
  return message.GetStr("extra", note) && note != nullptr && std::strcmp(note, kind) == 0;
}
// A picture is there, as a file.
inline bool IsNewFrame(const quill::base::Message& message) {
  return IsNotice(message, "newframe");
}
// One came to nothing.
inline bool IsFailure(const quill::base::Message& message) { return IsNotice(message, "failed"); }
// None will come any more, until the stream is opened anew.
inline bool IsEnd(const quill::base::Message& message) { return IsNotice(message, "ended"); }

}  // namespace tessel::dualos
