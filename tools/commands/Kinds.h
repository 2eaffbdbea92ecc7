// The kinds of video and sound that a source can deliver, for the tables of what goes with which.
#pragma once

#include <string>

#include "quill/object.h"

namespace tessel::tool {

// Each is a bit, so that a table can name several.
enum Kind : unsigned {
  kH264 = 1,          // captured at the rate asked for
  kH264Variable = 2,  // thinned to the rate asked for
  kJpeg = 4,
  kRaw = 8,
  kSynthetic = 16,  // buffers without a picture, made without the real-time side
  kPcm = 32,
  kAac = 64,
};
inline constexpr unsigned kAnyH264 = kH264 | kH264Variable;
inline constexpr unsigned kAnyVideo = kAnyH264 | kJpeg | kRaw | kSynthetic;
inline constexpr unsigned kAnySound = kPcm | kAac;
inline constexpr unsigned kAnyKind = kAnyVideo | kAnySound;

struct KindRow {
  Kind kind;
  const char* text;  // in a list
  const char* noun;  // as the subject of a sentence
  bool (*is)(quill::base::object& made, const std::string& class_name);

  bool IsSound() const { return (kind & kAnySound) != 0; }
};

// What `made`, an object of that class, delivers. Null: neither video nor sound.
const KindRow* KindOf(quill::base::object& made, const std::string& class_name);

}  // namespace tessel::tool
