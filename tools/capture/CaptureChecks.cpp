#include "CaptureChecks.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "quill/AttrSet.h"

#include "Console.h"
#include "Containers.h"
#include "SourceKinds.h"

namespace tessel::tool {
namespace {

using Sources = std::span<const CaptureSource>;

constexpr int kCaptureRate = 30;  // frames/s of a source whose rate was not set

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

// The video source, or the only one.
const CaptureSource& VideoOf(Sources sources) {
  const auto video = std::find_if_not(sources.begin(), sources.end(),
                                      [](const auto& source) { return source.IsSound(); });
  return video == sources.end() ? sources.front() : *video;
}

bool CheckTriggers(Sources sources, const CaptureOptions& options, std::string& error) {
  const CaptureSource& source = VideoOf(sources);
  if (source.trigger == nullptr && options.HasTriggers()) {
    error = Format("--trigger-%s: %s takes no triggers; `tessel list` shows what does",
                   options.trigger_on_stdin ? "on-stdin" : "every", source.name.c_str());
    return false;
  }
  if (source.trigger == nullptr) return true;
  if (!options.HasTriggers()) {
    error = source.name + " delivers nothing untriggered; add --trigger-every MS or " +
            "--trigger-on-stdin";
    return false;
  }
  // The time of the next trigger is unknown, so unpaced sound would run ahead without bound.
  if (sources.size() == 1 || !options.inputs.unpaced) return true;
  error = "--unpaced: sound beside triggered pictures is captured live";
  return false;
}

bool CheckPair(Sources sources, std::string& error) {
  if (sources.size() < 2 || sources[0].IsSound() != sources[1].IsSound()) return true;
  error = sources[0].name + " and " + sources[1].name + " are both " +
          (sources[0].IsSound() ? "sound" : "video") + "; one of each goes into a file";
  return false;
}

bool CheckOutput(Sources sources, const CaptureOptions& options, std::string& error) {
  std::vector<MediaKind> kinds;
  std::string nouns;
  for (const CaptureSource& source : sources) {
    kinds.push_back(source.kind->media);
    nouns += (nouns.empty() ? "" : " with ") + std::string(source.kind->noun);
  }
  if (FindContainer(options.output, kinds) != nullptr) return true;
  const std::string known = ContainersOf(kinds);
  error = "--output: " + nouns + (known.empty() ? " goes into no file" : " goes into " + known);
  return false;
}

// What the error says of a source that does not take an option. `lack` is for a source whose kin,
// video or sound, take it.
std::string LackOf(const CaptureSource& source, const char* option, const char* lack) {
  if (IsTakenBy(option, source.IsSound())) return lack;
  return source.IsSound() ? "has no pictures" : "has no sound";
}

bool Refuse(const char* option, const CaptureSource& source, const std::string& lack,
            std::string& error) {
  error = Format("--%s: %s %s", option, source.kind->noun, lack.c_str());
  return false;
}

bool CheckOptions(Sources sources, const CaptureOptions& options, std::string& error) {
  for (const OptionRow& row : OptionRows()) {
    const CaptureSource& source = Addressed(sources, row.name);
    if (source.Takes(row.name) || !row.given(options)) continue;
    return Refuse(row.name, source, LackOf(source, row.name, row.lack), error);
  }
  return true;
}

bool CheckChanges(Sources sources, const CaptureOptions& options, std::string& error) {
  for (const auto& [row, value, frame] : options.changes) {
    const CaptureSource& source = Addressed(sources, row->name);
    if (!source.Takes(row->name)) {
      return Refuse(row->name, source, LackOf(source, row->name, row->lack), error);
    }
    if (source.IsSound() && frame > 0) {
      return Refuse(row->name, source,
                    "keeps the value that it begins with; --set cannot change it", error);
    }
  }
  return true;
}

// A thinned source cannot be thinned to more than it captures.
bool CheckCaptureRate(const CaptureSource& video, const CaptureOptions& options,
                      std::string& error) {
  const ControlChange* fps = options.FirstOf("fps");
  const bool fits = fps == nullptr || fps->value <= kCaptureRate;
  if (fits || !video.IsThinned() || options.FirstOf("capture-fps") != nullptr) return true;
  return Refuse("fps", video,
                Format("captures at %d frames/s; add --capture-fps %d", kCaptureRate, fps->value),
                error);
}

bool CheckFormat(const CaptureSource& video, const CaptureOptions& options, std::string& error) {
  const MediaKind kind = video.kind->media;
  if (kind != MediaKind::kRaw) return true;
  const std::string format =
      options.format.empty() ? video.kind->read(video).pixel_format : options.format;
  const bool is_name = std::all_of(format.begin(), format.end(), [](unsigned char letter) {
    return std::isalnum(letter) != 0 || letter == '_';
  });
  if (!is_name) error = Quoted(format) + " is no name of a layout";
  if (is_name && TakesFormat(*FindContainer(options.output, {&kind, 1}), format, error))
    return true;
  error = "--format: " + error;
  return false;
}

}  // namespace

bool Check(const CaptureOptions& options, std::string& error) {
  const Container* container = FindContainer(options.output);
  if (container == nullptr) {
    error = "--output: " + Quoted(options.output) + " ends in none of " + ContainersOf() +
            ", which choose the container";
    return false;
  }
  if (IsPictures(*container) && !CheckPictures(options, error)) return false;
  const std::pair<const char*, std::string> inputs[] = {{"sensor", options.inputs.sensor},
                                                        {"mic", options.inputs.mic}};
  for (const auto& [option, input] : inputs) {
    if (IsSameFile(options.output, input) || IsNumbered(options.output, input)) {
      error = "--output: " + options.output + " is what --" + option + " reads";
      return false;
    }
    // The real-time side gets it as part of a text.
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

bool CheckFor(Sources sources, const CaptureOptions& options, std::string& error) {
  const CaptureSource& video = VideoOf(sources);
  return CheckPair(sources, error) && CheckOutput(sources, options, error) &&
         CheckOptions(sources, options, error) && CheckChanges(sources, options, error) &&
         CheckCaptureRate(video, options, error) && CheckTriggers(sources, options, error) &&
         CheckFormat(video, options, error);
}

}  // namespace tessel::tool
