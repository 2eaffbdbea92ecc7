#include "CaptureOptions.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>
#include <utility>

#include "quill/AttrSet.h"

#include "Console.h"
#include "Containers.h"

namespace tessel::tool {
namespace {

constexpr int kCaptureRate = 30;  // frames/s, of a source that was told nothing

// An option that only some kinds of source have a use for.
struct OptionRow {
  const char* name;
  unsigned kinds;
  const char* lack;  // what is said of the others
  bool (*is_given)(const CaptureOptions& options);
};
constexpr unsigned kSensed = kAnyVideo & ~kSynthetic;
constexpr OptionRow kRows[] = {
    {"gop", kAnyH264, "has no GOP", [](auto& all) { return all.gop.has_value(); }},
    {"goptype", kAnyH264, "has no GOP", [](auto& all) { return !all.goptype.empty(); }},
    {"key-every", kAnyH264, "has key frames only", [](auto& all) { return all.key_every > 0; }},
    {"key-at", kAnyH264, "has key frames only", [](auto& all) { return !all.key_at.empty(); }},
    {"format", kRaw, "has no choice of formats", [](auto& all) { return !all.format.empty(); }},
    {"width", kAnyVideo, "", [](auto& all) { return all.width.has_value(); }},
    {"height", kAnyVideo, "", [](auto& all) { return all.height.has_value(); }},
    {"sensor", kSensed, "has no sensor", [](auto& all) { return all.sensor != "test"; }},
    {"once", kSensed | kAnySound, "has no sensor", [](auto& all) { return all.once; }},
    {"unpaced", kSensed | kAnySound, "has no sensor", [](auto& all) { return all.unpaced; }},
    {"mic", kAnySound, "", [](auto& all) { return all.mic != "test"; }},
    {"rate", kAnySound, "", [](auto& all) { return all.rate.has_value(); }},
    {"channels", kAnySound, "", [](auto& all) { return all.channels.has_value(); }},
    {"profile", kAac, "has no profile", [](auto& all) { return !all.profile.empty(); }},
    {"bandwidth", kAac, "has no encoder", [](auto& all) { return all.bandwidth_hz.has_value(); }},
    {"sound-bitrate", kAac, "has no encoder",
     [](auto& all) { return all.sound_bit_rate_bps.has_value(); }},
};

// Whether two names lead to one file, or both to standard output.
bool IsSameFile(const std::string& a, const std::string& b) {
  std::error_code failure;
  if (std::filesystem::is_regular_file(a, failure)) {
    return std::filesystem::equivalent(a, b, failure);
  }
  return !a.empty() && a == b;
}

// Whether `path` may be one of the files that `pattern`, such as "x-%03d.jpg", stands for.
bool IsNumbered(const std::string& pattern, const std::string& path) {
  const std::size_t begin = pattern.find('%');
  const std::size_t end = begin == pattern.npos ? begin : pattern.find('d', begin);
  if (!IsPattern(pattern) || end == pattern.npos) return false;
  std::error_code failure;
  const std::filesystem::path folder = std::filesystem::current_path(failure);
  const std::string file = (folder / path).lexically_normal().string();
  const std::string head = (folder / pattern.substr(0, begin)).lexically_normal().string();
  return file.starts_with(head) && file.ends_with(pattern.substr(end + 1));
}

bool IsOrdered(const CaptureOptions& options, const char* low, const char* high,
               std::string& error) {
  const ControlChange* least = options.FirstOf(low);
  const ControlChange* most = options.FirstOf(high);
  const bool are_from_start =
      least != nullptr && most != nullptr && least->frame == 0 && most->frame == 0;
  if (!are_from_start || least->value <= most->value) return true;
  error = Format("--%s %d is above --%s %d", low, least->value, high, most->value);
  return false;
}

bool CheckPictures(const CaptureOptions& options, std::string& error) {
  const bool is_one = options.frames && *options.frames == 1;
  if (is_one || IsPattern(options.output)) return true;
  const std::filesystem::path path = options.output;
  const std::string pattern = path.stem().string() + "-%03d" + path.extension().string();
  error = "--output: one file takes one picture: add --frames 1, or number them by a pattern, as " +
          path.parent_path().append(pattern).string();
  return false;
}

bool CheckTriggers(std::span<const Source> sources, const CaptureOptions& options,
                   std::string& error) {
  const Source& source = Addressed(sources, kAnyVideo);
  if (source.trigger == nullptr && options.Triggers()) {
    error = Format("--trigger-%s: %s takes no triggers; `tessel list` shows what does",
                   options.trigger_on_stdin ? "on-stdin" : "every", source.name.c_str());
    return false;
  }
  if (source.trigger == nullptr) return true;
  if (!options.Triggers()) {
    error = source.name + " delivers nothing untriggered; add --trigger-every MS or " +
            "--trigger-on-stdin";
    return false;
  }
  // Nothing tells how far the sound may go on until somebody triggers.
  if (sources.size() == 1 || !options.unpaced) return true;
  error = "--unpaced: sound beside triggered pictures is captured live";
  return false;
}

unsigned Family(const Source& source) { return source.IsSound() ? kAnySound : kAnyVideo; }

bool CheckPair(std::span<const Source> sources, std::string& error) {
  if (sources.size() < 2 || sources[0].IsSound() != sources[1].IsSound()) return true;
  error = sources[0].name + " and " + sources[1].name + " are both " +
          (sources[0].IsSound() ? "sound" : "video") + "; one of each goes into a file";
  return false;
}

bool CheckOutput(std::span<const Source> sources, const CaptureOptions& options,
                 std::string& error) {
  unsigned kinds = 0;
  std::string nouns;
  for (const Source& source : sources) {
    kinds |= source.kind->kind;
    nouns += (nouns.empty() ? "" : " with ") + std::string(source.kind->noun);
  }
  if (FindContainer(options.output, kinds) != nullptr) return true;
  const std::string known = ContainersOf(kinds);
  error = "--output: " + nouns + (known.empty() ? " goes into no file" : " goes into " + known);
  return false;
}

bool CheckChanges(std::span<const Source> sources, const CaptureOptions& options,
                  std::string& error) {
  for (const ControlChange& change : options.changes) {
    const Source& source = Addressed(sources, change.row->kinds);
    const std::string head = std::string("--") + change.row->name + ": " + source.kind->noun;
    if ((change.row->kinds & source.kind->kind) == 0) {
      const bool is_kin = (change.row->kinds & Family(source)) != 0;
      error = head + " " + (is_kin ? change.row->lack : "has no pictures");
      return false;
    }
    if (source.IsSound() && change.frame > 0) {
      error = head + " keeps the value that it begins with; --set cannot change it";
      return false;
    }
  }
  return true;
}

}  // namespace

const ControlChange* CaptureOptions::FirstOf(const char* control) const {
  const ControlRow* row = FindControl(control);
  const auto found = std::find_if(changes.begin(), changes.end(),
                                  [row](const auto& change) { return change.row == row; });
  return found == changes.end() ? nullptr : &*found;
}

const Source& Addressed(std::span<const Source> sources, unsigned kinds) {
  for (const Source& source : sources) {
    if ((source.kind->kind & kinds) != 0) return source;
  }
  const unsigned family = (kinds & kAnyVideo) != 0 ? kAnyVideo : kAnySound;
  for (const Source& source : sources) {
    if ((source.kind->kind & family) != 0) return source;
  }
  return sources.front();
}

bool Check(const CaptureOptions& options, std::string& error) {
  const Container* container = FindContainer(options.output);
  if (container == nullptr) {
    error = "--output: " + Quoted(options.output) + " ends in none of " + ContainersOf() +
            ", which choose the container";
    return false;
  }
  if (IsPictures(*container) && !CheckPictures(options, error)) return false;
  const std::pair<const char*, std::string> inputs[] = {{"sensor", options.sensor},
                                                        {"mic", options.mic}};
  for (const auto& [option, input] : inputs) {
    if (IsSameFile(options.output, input) || IsNumbered(options.output, input)) {
      error = "--output: " + options.output + " is what --" + option + " reads";
      return false;
    }
    // What cannot be written as text would not arrive.
    if (quill::base::AttrSet().Add(option, input)) continue;
    error = Format("--%s: ", option) + Quoted(input) + " has unbalanced braces; rename the file";
    return false;
  }
  if (IsSameFile(options.output, options.frame_log)) {
    error = "--output and --frame-log name the same file";
    return false;
  }
  if (options.trigger_every > 0 && options.trigger_on_stdin) {
    error = "--trigger-every and --trigger-on-stdin exclude each other";
    return false;
  }
  return IsOrdered(options, "bitrate-min", "bitrate-max", error) &&
         IsOrdered(options, "qp-min", "qp-max", error) &&
         IsOrdered(options, "fps", "capture-fps", error);
}

bool CheckFor(std::span<const Source> sources, const CaptureOptions& options, std::string& error) {
  if (!CheckPair(sources, error) || !CheckOutput(sources, options, error)) return false;
  const auto refuse = [&error](const char* option, const Source& source, const std::string& lack) {
    error = Format("--%s: %s %s", option, source.kind->noun, lack.c_str());
    return false;
  };
  for (const OptionRow& row : kRows) {
    const Source& source = Addressed(sources, row.kinds);
    if ((row.kinds & source.kind->kind) != 0 || !row.is_given(options)) continue;
    const bool is_kin = (row.kinds & Family(source)) != 0;
    return refuse(row.name, source,
                  is_kin             ? row.lack
                  : source.IsSound() ? "has no pictures"
                                     : "has no sound");
  }
  if (!CheckChanges(sources, options, error)) return false;
  const Source& video = Addressed(sources, kAnyVideo);
  const ControlChange* fps = options.FirstOf("fps");
  if (video.kind->kind == kH264Variable && fps != nullptr && fps->value > kCaptureRate &&
      options.FirstOf("capture-fps") == nullptr) {
    return refuse(
        "fps", video,
        Format("captures at %d frames/s; add --capture-fps %d", kCaptureRate, fps->value));
  }
  if (!CheckTriggers(sources, options, error)) return false;
  if (video.kind->kind != kRaw) return true;
  const std::string format =
      options.format.empty() ? video.raw->GetYuvMediaInfo().format : options.format;
  const bool is_name = std::all_of(format.begin(), format.end(), [](unsigned char letter) {
    return std::isalnum(letter) != 0 || letter == '_';
  });
  if (!is_name) error = Quoted(format) + " is no name of a layout";
  if (is_name && TakesFormat(*FindContainer(options.output, kRaw), format, error)) return true;
  error = "--format: " + error;
  return false;
}

}  // namespace tessel::tool
