// Whether the options of a capture go together.
#pragma once

#include <span>
#include <string>

#include "CaptureOptions.h"

namespace tessel::tool {

// False with `error`, naming the options, when they do not go together, whatever the class.
[[nodiscard]] bool Check(const CaptureOptions& options, std::string& error);
// The same, when they do not go with the sources.
[[nodiscard]] bool CheckFor(std::span<const CaptureSource> sources, const CaptureOptions& options,
                            std::string& error);

}  // namespace tessel::tool
