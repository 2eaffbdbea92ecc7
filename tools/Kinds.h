// The kinds of video that a source can deliver, for the tables of what goes with which.
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
};
inline constexpr unsigned kAnyH264 = kH264 | kH264Variable;
inline constexpr unsigned kAnyKind = kAnyH264 | kJpeg | kRaw | kSynthetic;

struct KindRow {
  Kind kind;
  const char* text;  // in a list
  const char* noun;  // as the subject of a sentence
  bool (*is)(quill::base::object& made, const std::string& class_name);
};

// What `made`, an object of that class, delivers. Null: no video.
const KindRow* KindOf(quill::base::object& made, const std::string& class_name);

}  // namespace tessel::tool
