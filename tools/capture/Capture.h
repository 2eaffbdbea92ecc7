// `tessel capture`: a source into a playable file.
#pragma once

#include "CaptureOptions.h"

namespace tessel::tool {

// Captures until the frames or seconds asked for are there, the input (of triggers, too) ends, or
// the user interrupts. REQUIRES: Check(options), and that it is called once, before any other
// thread is started. The exit code.
int Capture(const CaptureOptions& options);

}  // namespace tessel::tool
