#include "CaptureCommand.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "Arguments.h"
#include "Console.h"
#include "ControlText.h"
#include "Units.h"

namespace tessel::tool {
namespace {

constexpr char kCaptureExamples[] =
    R"(Frames are counted from 0 as they are written. A request for frame N is made when frame N-1 has come,
so a live source serves it with frame N; an --unpaced one is ahead and serves it a few frames later.
A triggered capture without --frames or --seconds ends with standard input, or with Ctrl-C.
Two classes, one of video and one of sound, go into one file, in step by their time stamps; both end
together. An option goes to the one that has a use for it, --bitrate to the video first.

Examples:
  tessel capture h264 -o clip.mp4 --seconds 10 --bitrate 2M --fps 25
  tessel capture h264 -o copy.mkv --sensor holiday.mov --once --unpaced
  tessel capture h264 -o - | ffplay -
  tessel capture h264 -o steps.mp4 --frames 300 --set bitrate=500k@100 --set bitrate=4M@200
  tessel capture h264-vbrc -o thin.mp4 --seconds 60 --capture-fps 30 --fps 5 --bitrate 500k
  tessel capture jpeg -o shot-%03d.jpg --frames 12 --qp 20
  tessel capture jpeg-trigger -o lapse.mkv --trigger-every 5000 --frames 720
  tessel capture h264 aac -o both.mp4 --seconds 10 --bitrate 2M --sound-bitrate 96k
  tessel capture pcm -o speech.wav --seconds 5 --mic alsa --rate 48000 --channels 2
  tessel capture yuv -o - --format 420V50 | ffplay -f rawvideo -video_size 1920x1080 -
)";

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

// The name goes into a description as it is.
void ReadProfile(const std::string& text, std::string& into) {
  const bool is_name = !text.empty() && std::all_of(text.begin(), text.end(), [](char letter) {
    return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '-' || letter == '_';
  });
  if (!is_name) Refuse("--profile", Quoted(text) + " is no name such as LC");
  into = text;
}

void AddSound(CLI::App& command, CaptureOptions& options) {
  constexpr int kMostHz = 192'000;
  AddWhole(command, "--rate", 1, kMostHz, options.rate, "Sound: samples/s [pcm 16000, aac 48000]");
  AddWhole(command, "--channels", 1, 8, options.channels, "Sound: channels [pcm 1, aac 2]");
  AddText(command, "--profile", "NAME", "AAC: profile [LC]",
          [&options](const std::string& text) { ReadProfile(text, options.profile); });
  AddWhole(command, "--bandwidth", 0, kMostHz / 2, options.bandwidth_hz,
           "AAC: Hz that are kept; 0: as the encoder likes");
  AddText(command, "--sound-bitrate", "N",
          "AAC: bit/s, also where --bitrate is the video's; holds for the whole capture [128k]",
          [&options](const std::string& text) {
            int value = 0;
            std::string error;
            if (!ParseScaled(text, 1'000, 1'000'000, value, error))
              Refuse("--sound-bitrate", error);
            options.sound_bit_rate_bps = value;
          });
  command
      .add_option("--mic", options.mic,
                  "test, tone, tone:HZ, a media file, or a sound card: alsa, alsa:DEVICE")
      ->type_name("INPUT")
      ->capture_default_str();
}

}  // namespace

void AddCapture(CLI::App& tool, CaptureOptions& options, std::string& rtos, std::string& board) {
  CLI::App& command = *tool.add_subcommand("capture", "Capture sources into a playable file");
  command.footer(kCaptureExamples);
  command.add_option("NAME", options.names, "Class to capture, or one of video and one of sound")
      ->required()
      ->expected(1, 2);
  command
      .add_option(
          "-o,--output", options.output,
          "File: .mp4, .mkv or .h264 (bare); JPEG: .mp4, .mkv, .mjpeg (bare) or .jpg, numbered "
          "as in x-%03d.jpg; raw video: .y4m or .yuv (bare); PCM: .wav, .mkv or .pcm (bare); AAC: "
          ".m4a, .mp4, .mkv or .aac (bare); both: .mp4 or .mkv. - streams the bare form, of both "
          ".mkv, to standard output, /dev/null only counts")
      ->required()
      ->type_name("FILE");
  AddWhole(command, "--frames", 1, kMostCount, options.frames,
           "End after N frames, of video where there is any");
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
  AddSound(command, options);
  command.add_option("--sensor", options.sensor, "test, a media file, or a camera as /dev/video0")
      ->type_name("INPUT")
      ->capture_default_str();
  command.add_flag("--once", options.once, "Play a media file once instead of over and over");
  command.add_flag("--unpaced", options.unpaced, "As fast as it goes; nothing is dropped");
  command
      .add_option("--frame-log", options.frame_log, "One JSON line a frame; - is standard output")
      ->type_name("FILE");
  AddRtos(command, rtos);
  AddBoard(command, board);
  command.add_flag("-q,--quiet", options.quiet, "Only errors: no progress, no summary");
}

}  // namespace tessel::tool
