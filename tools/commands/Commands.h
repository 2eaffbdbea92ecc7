// The commands of the tool. Each function adds one to the tool's command line, which must outlive
// the command that it returns.
#pragma once

#include <memory>

#include "Command.h"

namespace tessel::tool {

std::unique_ptr<Command> AddList(CLI::App& tool);
std::unique_ptr<Command> AddInspect(CLI::App& tool);
std::unique_ptr<Command> AddCapture(CLI::App& tool);
std::unique_ptr<Command> AddTop(CLI::App& tool);
std::unique_ptr<Command> AddSet(CLI::App& tool);
std::unique_ptr<Command> AddKey(CLI::App& tool);
std::unique_ptr<Command> AddTrigger(CLI::App& tool);
std::unique_ptr<Command> AddSnap(CLI::App& tool);
std::unique_ptr<Command> AddDevices(CLI::App& tool);
std::unique_ptr<Command> AddVolume(CLI::App& tool);
std::unique_ptr<Command> AddMute(CLI::App& tool);
std::unique_ptr<Command> AddAgc(CLI::App& tool);

}  // namespace tessel::tool
