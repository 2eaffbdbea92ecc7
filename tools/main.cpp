// The command-line tool: what each command takes, and what wrong usage says.
#include <cstdio>
#include <functional>
#include <string>
#include <utility>

#include "quill/Host.h"

#include "Capture.h"
#include "Console.h"
#include "Controls.h"
#include "ErrorLog.h"
#include "Inspect.h"
#include "Interrupts.h"
#include "List.h"
#include "Steer.h"
#include "Top.h"
#include "Units.h"

#include <CLI/CLI.hpp>

namespace tessel::tool {
namespace {

constexpr int kMostPixels = 16'384;  // a side; the real-time side may take less
constexpr int kMostCount = 1'000'000'000;

constexpr char kExamples[] = R"(Examples:
  tessel list
  tessel inspect h264
  tessel capture h264 -o clip.mp4 --seconds 10

A class is named as `tessel list` shows it, in full or for short: "jpeg" and "jpeg-pull" are pulled
from, "jpeg-push" pushes. Exit codes: 0 done, 1 failed, 2 wrong usage. QUILL_DEBUG=error, notice or
trace shows the host's own log lines.
)";

constexpr char kCaptureExamples[] =
    R"(Frames are counted from 0 as they are written. A request for frame N is made when frame N-1 has come,
so a live source serves it with frame N; an --unpaced one is ahead and serves it a few frames later.
A triggered capture without --frames or --seconds ends with standard input, or with Ctrl-C.

Examples:
  tessel capture h264 -o clip.mp4 --seconds 10 --bitrate 2M --fps 25
  tessel capture h264 -o copy.mkv --sensor holiday.mov --once --unpaced
  tessel capture h264 -o - | ffplay -
  tessel capture h264 -o steps.mp4 --frames 300 --set bitrate=500k@100 --set bitrate=4M@200
  tessel capture h264-vbrc -o thin.mp4 --seconds 60 --capture-fps 30 --fps 5 --bitrate 500k
  tessel capture jpeg -o shot-%03d.jpg --frames 12 --qp 20
  tessel capture jpeg-trigger -o lapse.mkv --trigger-every 5000 --frames 720
  tessel capture yuv -o - --format 420V50 | ffplay -f rawvideo -video_size 1920x1080 -
)";

[[noreturn]] void Refuse(const std::string& option, const std::string& reason) {
  throw CLI::ValidationError(option, reason);
}

using TextCallback = std::function<void(const std::string&)>;

// An option whose text is read by `read`, which refuses with Refuse().
CLI::Option* AddText(CLI::App& command, const std::string& names, const std::string& type,
                     const std::string& help, const TextCallback& read) {
  return command.add_option_function<std::string>(names, read, help)->type_name(type);
}

template <typename Number>
void AddWhole(CLI::App& command, const std::string& name, int least, int most, Number& into,
              const std::string& help) {
  AddText(command, name, "N", help, [name, least, most, &into](const std::string& text) {
    int value = 0;
    std::string error;
    if (!ParseWhole(text, least, most, value, error)) Refuse(name, error);
    into = value;
  });
}

void AddControls(CLI::App& command, CaptureOptions& options) {
  for (const ControlRow& row : ControlRows()) {
    const std::string name = std::string("--") + row.name;
    const std::string unit = *row.unit == '\0' ? "" : std::string(", ") + row.unit;
    AddText(command, name, "N", row.help + unit, [&row, name, &options](const std::string& text) {
      int value = 0;
      std::string error;
      if (!ParseControl(row, text, value, error)) Refuse(name, error);
      options.changes.push_back({&row, value, 0});
    });
  }
  command
      .add_option_function<std::vector<std::string>>(
          "--set",
          [&options](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
              ControlChange change = {};
              std::string error;
              if (!ParseChange(text, change, error)) Refuse("--set", error);
              options.changes.push_back(change);
            }
          },
          "Change one of these values while running (repeatable)")
      ->type_name("KEY=VALUE@FRAME")
      ->allow_extra_args(false);
}

// The pattern goes into a description as it is.
void ReadGopType(const std::string& text, std::string& into) {
  const bool is_pattern = text.starts_with('I') && text.find_first_not_of("IPB") == text.npos;
  if (!is_pattern)
    Refuse("--goptype", Quoted(text) + " is no pattern such as I, IPPP: I, P, B after an I");
  into = text;
}

void AddKeys(CLI::App& command, CaptureOptions& options) {
  AddWhole(command, "--key-every", 1, kMostCount, options.key_every,
           "Ask for a key frame every N frames");
  command
      .add_option_function<std::vector<std::string>>(
          "--key-at",
          [&options](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
              int frame = 0;
              std::string error;
              if (!ParseWhole(text, 0, kMostCount, frame, error)) Refuse("--key-at", error);
              options.key_at.push_back(frame);
            }
          },
          "Ask for a key frame at this frame (repeatable)")
      ->type_name("FRAME")
      ->allow_extra_args(false);
}

void AddTriggers(CLI::App& command, CaptureOptions& options) {
  AddWhole(command, "--trigger-every", 1, kMostCount, options.trigger_every,
           "Trigger a frame now and every N milliseconds, where the class is triggered");
  command.add_flag("--trigger-on-stdin", options.trigger_on_stdin,
                   "Trigger a frame for each line of standard input");
}

// The command then runs with the real-time side that listens there.
void AddRtos(CLI::App& command, std::string& socket) {
  command
      .add_option("--rtos", socket,
                  "Socket of a real-time side that runs already [$TESSEL_RTOS_SOCKET, else an own "
                  "one is started]")
      ->type_name("SOCKET");
}

void AddCapture(CLI::App& tool, CaptureOptions& options, std::string& rtos) {
  CLI::App& command = *tool.add_subcommand("capture", "Capture a source into a playable file");
  command.footer(kCaptureExamples);
  command.add_option("NAME", options.name, "Class to capture")->required();
  command
      .add_option(
          "-o,--output", options.output,
          "File: .mp4, .mkv or .h264 (bare); JPEG: .mp4, .mkv, .mjpeg (bare) or .jpg, numbered "
          "as in x-%03d.jpg; raw video: .y4m or .yuv (bare). - streams the bare form to "
          "standard output, /dev/null only counts")
      ->required()
      ->type_name("FILE");
  AddWhole(command, "--frames", 1, kMostCount, options.frames, "End after N frames");
  AddText(command, "--seconds", "S", "End after S seconds", [&options](const std::string& text) {
    double seconds = 0;
    std::string error;
    if (!ParseSeconds(text, seconds, error)) Refuse("--seconds", error);
    options.seconds = seconds;
  });
  AddWhole(command, "--width", 2, kMostPixels, options.width, "Picture width, pixels");
  AddWhole(command, "--height", 2, kMostPixels, options.height, "Picture height, pixels");
  command.add_option("--format", options.format, "Layout of raw pictures [420V50]")
      ->type_name("FMT");
  AddWhole(command, "--gop", 1, kMostCount, options.gop, "Frames from one key frame to the next");
  AddText(command, "--goptype", "PATTERN", "Picture types from the key frame on, such as IPPP",
          [&options](const std::string& text) { ReadGopType(text, options.goptype); });
  AddControls(command, options);
  AddKeys(command, options);
  AddTriggers(command, options);
  command.add_option("--sensor", options.sensor, "test, a media file, or a camera as /dev/video0")
      ->type_name("INPUT")
      ->capture_default_str();
  command.add_flag("--once", options.once, "Play a media file once instead of over and over");
  command.add_flag("--unpaced", options.unpaced, "As fast as it goes; nothing is dropped");
  command
      .add_option("--frame-log", options.frame_log, "One JSON line a frame; - is standard output")
      ->type_name("FILE");
  AddRtos(command, rtos);
  command.add_flag("-q,--quiet", options.quiet, "Only errors: no progress, no summary");
}

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

void AddTop(CLI::App& tool, TopOptions& options, std::string& rtos) {
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
}

CLI::App& AddSteering(CLI::App& tool, const char* name, const char* help, SteerOptions& options,
                      std::string& rtos) {
  CLI::App& command = *tool.add_subcommand(name, help);
  command
      .add_option("STREAM", options.stream,
                  "Its number, session or kind (h264, jpeg-trigger, ...), as `tessel top` shows it")
      ->required();
  AddRtos(command, rtos);
  return command;
}

void AddSet(CLI::App& tool, SteerOptions& options, std::string& rtos) {
  CLI::App& command = AddSteering(
      tool, "set", "Change the rate control of a stream that another process runs", options, rtos);
  command.footer("Example:\n  tessel set h264 bitrate=2M bitrate-max=4M fps=25\n\nKeys: " +
                 ControlNames() + "\n");
  command.add_option("KEY=VALUE", options.assignments, "What to change")->required();
}

int WrongUsage(const CLI::App& tool, const std::string& reason) {
  std::string command = "tessel";
  for (const CLI::App* sub : tool.get_subcommands()) command += " " + sub->get_name();
  Say(reason);
  Say("`" + command + " --help` shows what there is");
  return kWrongUsage;
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
  quill::host::Options board = quill::host::GetOptions();
  std::string& rtos = board.far_side_socket;
  AddList(tool, list);
  AddInspect(tool, inspect);
  AddCapture(tool, capture, rtos);
  AddTop(tool, top, rtos);
  AddSet(tool, steer, rtos);
  AddSteering(tool, "key", "Ask a stream that another process runs for a key frame", steer, rtos);
  AddSteering(tool, "trigger", "Ask a triggered stream of another process for a frame", steer,
              rtos);
  try {
    tool.parse(argc, argv);
  } catch (const CLI::ParseError& stop) {
    const bool is_result = stop.get_exit_code() == 0;  // help and version
    return is_result ? tool.exit(stop) : WrongUsage(tool, stop.what());
  }
  if (tool.get_subcommands().empty()) return WrongUsage(tool, "a command is missing");
  std::string error;
  if (tool.got_subcommand("capture") && !Check(capture, error)) return WrongUsage(tool, error);

  // Whoever asks for an end while things are being loaded is heard later.
  if (tool.got_subcommand("capture") || tool.got_subcommand("top")) HoldInterrupts();
  ErrorLog::Install();
  quill::host::SetOptions(board);
  if (!quill::host::LoadPlugin(nullptr, &error)) {
    Say("cannot load the plug-in: " + error);
    return kFailed;
  }
  const std::pair<const char*, std::function<int()>> commands[] = {
      {"list", [&] { return List(list); }},          {"inspect", [&] { return Inspect(inspect); }},
      {"capture", [&] { return Capture(capture); }}, {"top", [&] { return Top(top); }},
      {"set", [&] { return Set(steer); }},           {"key", [&] { return RequestKey(steer); }},
      {"trigger", [&] { return Trigger(steer); }},
  };
  for (const auto& [name, run] : commands) {
    if (tool.got_subcommand(name)) return run();
  }
  return kWrongUsage;  // none is left out above
}

}  // namespace
}  // namespace tessel::tool

int main(int argc, char** argv) { return tessel::tool::Run(argc, argv); }
