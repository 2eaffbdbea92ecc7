// The arguments of `tessel capture` that say what is captured and how.
#pragma once

#include "CaptureOptions.h"

#include <CLI/CLI.hpp>

namespace tessel::tool {

// Borrows `options` as long as `command` lives.
void AddCaptureArguments(CLI::App& command, CaptureOptions& options);

}  // namespace tessel::tool
