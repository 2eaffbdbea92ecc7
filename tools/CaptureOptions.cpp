#include "CaptureOptions.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "quill/AttrSet.h"

#include "Console.h"

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
using Options = const CaptureOptions&;
constexpr OptionRow kRows[] = {
    {"gop", kAnyH264, "has no GOP", [](Options all) { return all.gop.has_value(); }},
    {"goptype", kAnyH264, "has no GOP", [](Options all) { return !all.goptype.empty(); }},
    {"key-every", kAnyH264, "has key frames only", [](Options all) { return all.key_every > 0; }},
    {"key-at", kAnyH264, "has key frames only", [](Options all) { return !all.key_at.empty(); }},
    {"format", kRaw, "has no choice of formats", [](Options all) { return !all.format.empty(); }},
    {"sensor", ~kSynthetic, "has no sensor", [](Options all) { return all.sensor != "test"; }},
    {"once", ~kSynthetic, "has no sensor", [](Options all) { return all.once; }},
    {"unpaced", ~kSynthetic, "has no sensor", [](Options all) { return all.unpaced; }},
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

bool IsOrdered(Options options, const char* low, const char* high, std::string& error) {
  const ControlChange* least = options.FirstOf(low);
  const ControlChange* most = options.FirstOf(high);
  const bool are_from_start =
      least != nullptr && most != nullptr && least->frame == 0 && most->frame == 0;
  if (!are_from_start || least->value <= most->value) return true;
  error = Format("--%s %d is above --%s %d", low, least->value, high, most->value);
  return false;
}

bool CheckPictures(Options options, std::string& error) {
  const bool is_one = options.frames && *options.frames == 1;
  if (is_one || IsPattern(options.output)) return true;
  const std::filesystem::path path = options.output;
  const std::string pattern = path.stem().string() + "-%03d" + path.extension().string();
  error = "--output: one file takes one picture: add --frames 1, or number them by a pattern, as " +
          path.parent_path().append(pattern).string();
  return false;
}

bool CheckTriggers(const VideoSource& source, Options options, std::string& error) {
  if (source.trigger == nullptr && options.Triggers()) {
    error = Format("--trigger-%s: %s takes no triggers; `tessel list` shows what does",
                   options.trigger_on_stdin ? "on-stdin" : "every", options.name.c_str());
    return false;
  }
  if (source.trigger == nullptr || options.Triggers()) return true;
  error = options.name + " delivers nothing untriggered; add --trigger-every MS or " +
          "--trigger-on-stdin";
  return false;
}

}  // namespace

const ControlChange* CaptureOptions::FirstOf(const char* control) const {
  const ControlRow* row = FindControl(control);
  const auto found = std::find_if(changes.begin(), changes.end(),
                                  [row](const auto& change) { return change.row == row; });
  return found == changes.end() ? nullptr : &*found;
}

bool Check(Options options, std::string& error) {
  const Container* container = FindContainer(options.output, kAnyKind);
  if (container == nullptr) {
    error = "--output: " + Quoted(options.output) + " ends in none of " + ContainersOf(kAnyKind) +
            ", which choose the container";
    return false;
  }
  if (IsPictures(*container) && !CheckPictures(options, error)) return false;
  if (IsSameFile(options.output, options.sensor) || IsNumbered(options.output, options.sensor)) {
    error = "--output: " + options.output + " is what --sensor reads";
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
  // What cannot be written as text would not arrive.
  if (!quill::base::AttrSet().Add("sensor", options.sensor)) {
    error = "--sensor: " + Quoted(options.sensor) + " has unbalanced braces; rename the file";
    return false;
  }
  return IsOrdered(options, "bitrate-min", "bitrate-max", error) &&
         IsOrdered(options, "qp-min", "qp-max", error) &&
         IsOrdered(options, "fps", "capture-fps", error);
}

bool CheckFor(const VideoSource& source, Options options, std::string& error) {
  const KindRow& kind = *source.kind;
  const auto refuse = [&error, &kind](const std::string& option, const std::string& lack) {
    error = "--" + option + ": " + kind.noun + " " + lack;
    return false;
  };
  const Container* container = FindContainer(options.output, kind.kind);
  if (container == nullptr) {
    return refuse("output", "goes into " + ContainersOf(kind.kind));
  }
  for (const OptionRow& row : kRows) {
    if ((row.kinds & kind.kind) == 0 && row.is_given(options)) return refuse(row.name, row.lack);
  }
  for (const ControlChange& change : options.changes) {
    const ControlRow& row = *change.row;
    if ((row.kinds & kind.kind) == 0) return refuse(row.name, row.lack);
  }
  const ControlChange* fps = options.FirstOf("fps");
  if (kind.kind == kH264Variable && fps != nullptr && fps->value > kCaptureRate &&
      options.FirstOf("capture-fps") == nullptr) {
    return refuse(
        "fps", Format("captures at %d frames/s; add --capture-fps %d", kCaptureRate, fps->value));
  }
  if (!CheckTriggers(source, options, error)) return false;
  if (kind.kind != kRaw) return true;
  const std::string format =
      options.format.empty() ? source.raw->GetYuvMediaInfo().format : options.format;
  if (TakesFormat(*container, format, error)) return true;
  error = "--format: " + error;
  return false;
}

}  // namespace tessel::tool
