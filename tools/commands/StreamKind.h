// What a stream of the real-time side delivers and how, read from its media and its chain.
#pragma once

#include <string>

#include "quill/Host.h"

namespace tessel::tool {

// "h264-vbrc", "jpeg-trigger", …: as the short names of classes have it.
std::string StreamKind(const quill::host::RtosStream& stream);

// Whether its frame rate is lower than the rate that it captures at.
bool IsThinned(const quill::host::RtosStream& stream);

}  // namespace tessel::tool
