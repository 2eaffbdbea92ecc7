// The table of source kinds: which one an object is of, and which options each takes.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "CaptureSource.h"

namespace tessel::tool {

// What `made`, an object of that class, delivers. Null: neither video nor sound.
const SourceKind* KindOf(quill::base::object& made, const std::string& class_name);

// Whether some kind of sound source, or else of video source, takes the option.
bool IsTakenBy(std::string_view option, bool is_sound);

// The source that an option goes to: the first one that takes it, else the one that refuses it.
// REQUIRES: there is a source.
const CaptureSource& Addressed(std::span<const CaptureSource> sources, std::string_view option);

// Creates a source that the user called `typed`. None, with `error` saying why, when `class_name`
// cannot be created or delivers neither video nor sound.
std::optional<CaptureSource> CreateSource(const std::string& class_name, const std::string& typed,
                                          std::string& error);

}  // namespace tessel::tool
