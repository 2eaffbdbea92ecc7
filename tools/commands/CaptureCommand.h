// The arguments of `tessel capture`.
#pragma once

#include <string>

#include "CaptureOptions.h"

#include <CLI/CLI.hpp>

namespace tessel::tool {

// Reads them into `options`, `rtos` and `board`, which are borrowed while `tool` lives.
void AddCapture(CLI::App& tool, CaptureOptions& options, std::string& rtos, std::string& board);

}  // namespace tessel::tool
