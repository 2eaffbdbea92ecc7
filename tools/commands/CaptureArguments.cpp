#include "CaptureArguments.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "Arguments.h"
#include "Console.h"
#include "ControlText.h"
#include "Units.h"

namespace tessel::tool {
namespace {

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

// The pattern becomes part of a description, so it is checked here.
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

// The name becomes part of a description, so it is checked here.
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
           "AAC: audio bandwidth, Hz; 0: the encoder decides");
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
      .add_option("--mic", options.inputs.mic,
                  "test, tone, tone:HZ, a media file, or a sound card: alsa, alsa:DEVICE")
      ->type_name("INPUT")
      ->capture_default_str();
}

void AddExtent(CLI::App& command, CaptureOptions& options) {
  AddWhole(command, "--frames", 1, kMostCount, options.frames,
           "End after N frames, of video where there is any");
  AddText(command, "--seconds", "S", "End after S seconds", [&options](const std::string& text) {
    double seconds = 0;
    std::string error;
    if (!ParseSeconds(text, seconds, error)) Refuse("--seconds", error);
    options.seconds = seconds;
  });
}

void AddPicture(CLI::App& command, CaptureOptions& options) {
  AddWhole(command, "--width", 2, kMostPixels, options.width, "Picture width, pixels");
  AddWhole(command, "--height", 2, kMostPixels, options.height, "Picture height, pixels");
  command.add_option("--format", options.format, "Layout of raw pictures [420V50]")
      ->type_name("FMT");
  AddWhole(command, "--gop", 1, kMostCount, options.gop, "Frames from one key frame to the next");
  AddText(command, "--goptype", "PATTERN", "Picture types from the key frame on, such as IPPP",
          [&options](const std::string& text) { ReadGopType(text, options.goptype); });
}

}  // namespace

void AddCaptureArguments(CLI::App& command, CaptureOptions& options) {
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
  AddExtent(command, options);
  AddPicture(command, options);
  AddControls(command, options);
  AddKeys(command, options);
  AddTriggers(command, options);
  AddSound(command, options);
  AddInputs(command, options.inputs, "As fast as it goes; nothing is dropped");
  command
      .add_option("--frame-log", options.frame_log, "One JSON line a frame; - is standard output")
      ->type_name("FILE");
}

}  // namespace tessel::tool
