// The command-line tool: what each command takes, and what wrong usage says.
#include <cstdio>
#include <functional>
#include <string>
#include <utility>

#include <signal.h>

#include "quill/Host.h"
#include "quill/StandardDescriptors.h"

#include "Arguments.h"
#include "Capture.h"
#include "CaptureCommand.h"
#include "Console.h"
#include "Controls.h"
#include "Devices.h"
#include "ErrorLog.h"
#include "Inspect.h"
#include "Interrupts.h"
#include "List.h"
#include "Snap.h"
#include "Steer.h"
#include "Top.h"

#include <CLI/CLI.hpp>

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

void AddInspect(CLI::App& tool, InspectOptions& options) {
  CLI::App& command =
      *tool.add_subcommand("inspect", "Show a class, its defaults and the chain it asks for");
  command.footer("Example:\n  tessel inspect ApiH264Source-dualos-cbrc-pull\n");
  command.add_option("NAME", options.name, "Class to show")->required();
}

void AddList(CLI::App& tool, ListOptions& options) {
  CLI::App& command = *tool.add_subcommand("list", "Show the classes that can be created");
  command.footer("Example:\n  tessel list --all | cut -f1\n");
  command.add_flag("--all", options.all, "Base classes and the host's own classes too");
}

void AddTop(CLI::App& tool, TopOptions& options, std::string& rtos, std::string& board) {
  CLI::App& command = *tool.add_subcommand(
      "top", "Show how the streams of the real-time side are going, those of other clients too");
  command.footer(
      "Examples:\n  tessel top --rtos /tmp/board\n  tessel top h264-vbrc --json --count 10\n");
  command.add_option("NAME", options.names, "Sources to play here meanwhile");
  command.add_flag("--json", options.json, "One JSON line a stream and look");
  AddText(command, "--interval", "S", "Seconds from look to look [1]",
          [&options](const std::string& text) {
            std::string error;
            if (!ParseSeconds(text, options.interval_s, error)) Refuse("--interval", error);
          });
  AddWhole(command, "--count", 1, kMostCount, options.count, "End after N looks");
  AddRtos(command, rtos);
  AddBoard(command, board);
}

CLI::App& AddSteering(CLI::App& tool, const char* name, const char* help, const std::string& footer,
                      SteerOptions& options, std::string& rtos) {
  CLI::App& command = *tool.add_subcommand(name, help);
  command.footer(footer);
  command
      .add_option("STREAM", options.stream,
                  "Its number, session or kind (h264, jpeg-trigger, ...), as `tessel top` shows it")
      ->required();
  AddRunningRtos(command, rtos);
  return command;
}

void AddSet(CLI::App& tool, SteerOptions& options, std::string& rtos) {
  CLI::App& command = AddSteering(
      tool, "set", "Change the rate control of a stream that another process runs",
      "Example:\n  tessel set h264 bitrate=2M bitrate-max=4M fps=25\n\nKeys: " + ControlNames() +
          "\n",
      options, rtos);
  command.add_option("KEY=VALUE", options.assignments, "What to change")->required();
}

void AddDevices(CLI::App& tool, DevicesOptions& options, std::string& rtos, std::string& board) {
  CLI::App& command =
      *tool.add_subcommand("devices", "Show the board's microphone and speaker and their controls");
  command.footer(
      "Examples:\n  tessel devices --board telephone\n  tessel devices --json --rtos /tmp/board\n");
  command.add_flag("--json", options.json, "One JSON line a device");
  AddRtos(command, rtos);
  AddBoard(command, board);
}

CLI::App& AddDevice(CLI::App& tool, const char* name, const char* help, const char* footer,
                    DeviceOptions& options, std::string& rtos) {
  CLI::App& command = *tool.add_subcommand(name, help);
  command.footer(footer);
  command.add_option("DEVICE", options.device, "mic or speaker")->required();
  AddRunningRtos(command, rtos);
  return command;
}

void AddVolume(CLI::App& tool, DeviceOptions& options, std::string& rtos) {
  CLI::App& command =
      AddDevice(tool, "volume", "Set the volume of a device of a real-time side that runs",
                "Example:\n  tessel volume mic 40 --rtos /tmp/board\n", options, rtos);
  AddWhole(command, "N", -kMostCount, kMostCount, options.value,
           "Volume; brought into the device's range");
  command.get_option("N")->required();
}

void AddSwitch(CLI::App& tool, const char* name, const char* help, const char* footer,
               DeviceOptions& options, std::string& rtos) {
  CLI::App& command = AddDevice(tool, name, help, footer, options, rtos);
  const auto read = [name, &options](const std::string& text) {
    if (text != "on" && text != "off") Refuse(name, Quoted(text) + " is neither on nor off");
    options.value = text == "on" ? 1 : 0;
  };
  AddText(command, "on|off", "", "Which of the two it is to be", read)->required();
}

void ReadSize(const std::string& text, SnapOptions& options) {
  const auto cross = text.find('x');
  const auto side = [&text](std::size_t from, std::size_t count, std::optional<int>& into) {
    int pixels = 0;
    std::string error;
    if (!ParseWhole(text.substr(from, count), 2, kMostPixels, pixels, error)) {
      Refuse("--size", Quoted(text) + " is no size such as 1280x720: " + error);
    }
    into = pixels;
  };
  if (cross == text.npos) Refuse("--size", Quoted(text) + " is no size such as 1280x720");
  side(0, cross, options.width);
  side(cross + 1, text.npos, options.height);
}

void AddSnap(CLI::App& tool, SnapOptions& options, std::string& rtos) {
  CLI::App& command = *tool.add_subcommand("snap", "Take still pictures");
  command.footer(
      "A line a picture: URL, size, milliseconds from the request to the file. One that cannot be\n"
      "written does not end the others; the exit code is 1 then.\n\n"
      "Examples:\n  tessel snap door.jpeg --size 1280x720\n"
      "  tessel snap file:///tmp/shot-%03d.jpeg --count 10 --interval 500\n");
  command
      .add_option("URL", options.urls,
                  "file:// URL or path; %d or %03d in it becomes the picture's number")
      ->required();
  AddWhole(command, "--count", 1, kMostCount, options.count, "Pictures of each URL");
  AddWhole(command, "--interval", 0, kMostCount, options.interval_ms,
           "Milliseconds from request to request; else as fast as they come");
  AddText(command, "--size", "WxH", "Picture size, pixels [1920x1080]",
          [&options](const std::string& text) { ReadSize(text, options); });
  AddWhole(command, "--qp", 0, 51, options.qp, "Quantiser; 0 leaves it to the encoder");
  command.add_flag("--photography", options.photography, "By the photography class");
  command.add_option("--sensor", options.sensor, "test, a media file, or a camera as /dev/video0")
      ->type_name("INPUT")
      ->capture_default_str();
  command.add_flag("--once", options.once, "Play a media file once instead of over and over");
  command.add_flag("--unpaced", options.unpaced, "Without waiting for the sensor's next picture");
  AddRtos(command, rtos);
}

int WrongUsage(const CLI::App& tool, const std::string& reason) {
  std::string command = "tessel";
  for (const CLI::App* sub : tool.get_subcommands()) command += " " + sub->get_name();
  Say(reason);
  Say("`" + command + " --help` shows what there is");
  return kWrongUsage;
}

// What a command has printed has to have got somewhere.
int EndOutput(int exit_code) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return exit_code;
  Say("cannot write to standard output");
  return kFailed;
}

int Run(int argc, char** argv) {
  CLI::App tool("Lists, inspects, captures and steers the sources of the streaming plug-in.",
                "tessel");
  tool.footer(kExamples);
  tool.set_version_flag("--version", "tessel " TESSEL_VERSION);
  ListOptions list;
  InspectOptions inspect;
  CaptureOptions capture;
  TopOptions top;
  SteerOptions steer;
  SnapOptions snap;
  DevicesOptions devices;
  DeviceOptions device;
  quill::host::Options host = quill::host::GetOptions();
  std::string& rtos = host.far_side_socket;
  AddList(tool, list);
  AddInspect(tool, inspect);
  AddCapture(tool, capture, rtos, host.board);
  AddTop(tool, top, rtos, host.board);
  AddSet(tool, steer, rtos);
  AddSteering(tool, "key", "Ask a stream that another process runs for a key frame",
              "Example:\n  tessel key h264 --rtos /tmp/board\n", steer, rtos);
  AddSteering(tool, "trigger", "Ask a triggered stream of another process for a frame",
              "Example:\n  tessel trigger jpeg-trigger --rtos /tmp/board\n", steer, rtos);
  AddSnap(tool, snap, rtos);
  AddDevices(tool, devices, rtos, host.board);
  AddVolume(tool, device, rtos);
  AddSwitch(tool, "mute", "Mute a device of a real-time side that runs; its volume goes to 0",
            "Example:\n  tessel mute mic on --rtos /tmp/board\n", device, rtos);
  AddSwitch(tool, "agc", "Let a device of a real-time side that runs choose its gain",
            "Example:\n  tessel agc mic off --rtos /tmp/board\n", device, rtos);
  try {
    tool.parse(argc, argv);
  } catch (const CLI::ParseError& stop) {
    const bool is_result = stop.get_exit_code() == 0;  // help and version
    return is_result ? tool.exit(stop) : WrongUsage(tool, stop.what());
  }
  if (tool.get_subcommands().empty()) return WrongUsage(tool, "a command is missing");
  std::string error;
  quill::host::SetOptions(host);
  if (!CheckBoard(error)) return WrongUsage(tool, error);
  if (tool.got_subcommand("capture") && !Check(capture, error)) return WrongUsage(tool, error);

  // Whoever asks for an end while things are being loaded is heard later.
  const bool runs_on = tool.got_subcommand("capture") || tool.got_subcommand("top");
  if (runs_on || tool.got_subcommand("snap")) HoldInterrupts();
  ErrorLog::Install();
  if (!quill::host::LoadPlugin(nullptr, &error)) {
    Say("cannot load the plug-in: " + error);
    return kFailed;
  }
  const std::pair<const char*, std::function<int()>> commands[] = {
      {"list", [&] { return List(list); }},
      {"inspect", [&] { return Inspect(inspect); }},
      {"capture", [&] { return Capture(capture); }},
      {"top", [&] { return Top(top); }},
      {"set", [&] { return Set(steer); }},
      {"key", [&] { return RequestKey(steer); }},
      {"trigger", [&] { return Trigger(steer); }},
      {"snap", [&] { return Snap(snap); }},
      {"devices", [&] { return Devices(devices); }},
      {"volume", [&] { return SetVolume(device); }},
      {"mute", [&] { return SetMute(device); }},
      {"agc", [&] { return SetGainControl(device); }},
  };
  for (const auto& [name, run] : commands) {
    if (tool.got_subcommand(name)) return EndOutput(run());
  }
  return kWrongUsage;  // none is left out above
}

}  // namespace
}  // namespace tessel::tool

int main(int argc, char** argv) {
  quill::base::FillStandardDescriptors();
  signal(SIGXFSZ, SIG_IGN);  // a file at the limit on its size is an error like a full disk
  return tessel::tool::Run(argc, argv);
}
