// The command-line tool: reads the command line and runs the command that it names.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <signal.h>

#include "quill/Host.h"
#include "quill/StandardDescriptors.h"

#include "Commands.h"
#include "Console.h"
#include "ErrorLog.h"
#include "Interrupts.h"

namespace tessel::tool {
namespace {

constexpr char kExamples[] = R"(Examples:
  tessel list
  tessel inspect h264
  tessel capture h264 -o clip.mp4 --seconds 10
  tessel capture h264 aac -o clip.mp4 --seconds 10

A class is named as `tessel list` shows it, in full or for short: "jpeg" and "jpeg-pull" are pulled
from, "jpeg-push" pushes. Exit codes: 0 done, 1 failed, 2 wrong usage. QUILL_DEBUG=error, notice or
trace shows the host's own log lines.
)";

// In the order of the help.
using AddCommand = std::unique_ptr<Command>(CLI::App& tool);
constexpr AddCommand* kCommands[] = {
    &AddList,    &AddInspect, &AddCapture, &AddTop,    &AddSet,  &AddKey,
    &AddTrigger, &AddSnap,    &AddDevices, &AddVolume, &AddMute, &AddAgc,
};

int WrongUsage(const CLI::App& tool, const std::string& reason) {
  std::string command = "tessel";
  for (const CLI::App* sub : tool.get_subcommands()) command += " " + sub->get_name();
  Say(reason);
  Say("`" + command + " --help` shows what there is");
  return kWrongUsage;
}

// A command fails when its output cannot be written.
int EndOutput(int exit_code) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return exit_code;
  Say("cannot write to standard output");
  return kFailed;
}

int RunCommand(const CLI::App& tool, Command& command) {
  std::string error;
  quill::host::SetOptions(command.HostOptions());
  if (!command.Check(error)) return WrongUsage(tool, error);
  // An interrupt that comes while the plug-in loads stays pending until Run() watches for it.
  if (command.WatchesInterrupts()) HoldInterrupts();
  ErrorLog::Install();
  if (!quill::host::LoadPlugin(nullptr, &error)) {
    Say("cannot load the plug-in: " + error);
    return kFailed;
  }
  return EndOutput(command.Run());
}

int Run(int argc, char** argv) {
  CLI::App tool("Lists, inspects, captures and steers the sources of the streaming plug-in.",
                "tessel");
  tool.footer(kExamples);
  tool.set_version_flag("--version", "tessel " TESSEL_VERSION);
  std::vector<std::unique_ptr<Command>> commands;
  for (AddCommand* add : kCommands) commands.push_back(add(tool));
  try {
    tool.parse(argc, argv);
  } catch (const CLI::ParseError& stop) {
    const bool is_result = stop.get_exit_code() == 0;  // help and version
    return is_result ? tool.exit(stop) : WrongUsage(tool, stop.what());
  }
  const auto chosen = std::find_if(commands.begin(), commands.end(),
                                   [](const auto& command) { return command->IsChosen(); });
  if (chosen == commands.end()) return WrongUsage(tool, "a command is missing");
  return RunCommand(tool, **chosen);
}

}  // namespace
}  // namespace tessel::tool

int main(int argc, char** argv) {
  quill::base::FillStandardDescriptors();
  signal(SIGXFSZ, SIG_IGN);  // a file at the limit on its size is an error like a full disk
  return tessel::tool::Run(argc, argv);
}
