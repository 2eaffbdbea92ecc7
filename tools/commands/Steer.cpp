// `tessel set`, `tessel key`, `tessel trigger`: steering a stream that another process runs.
#include <algorithm>
#include <cctype>
#include <iterator>
#include <map>
#include <optional>
#include <vector>

#include "quill/StreamWords.h"

#include "Commands.h"
#include "Console.h"
#include "ControlText.h"
#include "StreamKind.h"

namespace tessel::tool {
namespace {

namespace control_word = quill::stream::control_word;
using quill::host::RtosStream;

using Values = std::map<std::string, int>;  // by key

bool IsMeant(const RtosStream& stream, const std::string& name) {
  const bool is_number =
      !name.empty() && std::all_of(name.begin(), name.end(),
                                   [](unsigned char digit) { return std::isdigit(digit) != 0; });
  if (is_number) return std::to_string(stream.id) == name;
  return stream.counters.session == name || StreamKind(stream) == name;
}

std::string Listed(const std::vector<RtosStream>& streams) {
  std::string text;
  for (const RtosStream& stream : streams) {
    text += Format("%s%d (%s of process %d)", text.empty() ? "" : ", ", stream.id,
                   StreamKind(stream).c_str(), static_cast<int>(stream.client));
  }
  return text;
}

// The one stream that `name` means. None, after an error message, when it means no stream or
// several.
std::optional<RtosStream> FindStream(const std::string& name) {
  std::vector<RtosStream> streams;
  std::string error;
  if (!quill::host::ListRtosStreams(streams, error)) {
    Say(error);
    return std::nullopt;
  }
  std::vector<RtosStream> meant;
  std::copy_if(streams.begin(), streams.end(), std::back_inserter(meant),
               [&](const RtosStream& stream) { return IsMeant(stream, name); });
  if (meant.size() == 1) return meant.front();
  if (meant.size() > 1) {
    Say(Quoted(name) + " is not the only one: give the number of " + Listed(meant));
  } else {
    Say("no stream " + Quoted(name) + "; " +
        (streams.empty() ? "no stream is open" : "there are " + Listed(streams)));
  }
  return std::nullopt;
}

// The word of the rate-control block that a key sets. "fps" sets others too.
struct KeyWord {
  const char* key;
  const char* word;
};
constexpr KeyWord kKeyWords[] = {
    {"fps", control_word::kFrameRate},          {"capture-fps", control_word::kFrameRateMax},
    {"bitrate", control_word::kBitRateTarget},  {"bitrate-min", control_word::kBitRateMin},
    {"bitrate-max", control_word::kBitRateMax}, {"qp", control_word::kQp},
    {"qp-min", control_word::kQpMin},           {"qp-max", control_word::kQpMax},
};

std::vector<std::string> WordsOf(const std::string& key, const RtosStream& stream) {
  // A stream of constant rate captures at the rate that it delivers.
  if (key == "fps" && !IsThinned(stream)) {
    return {control_word::kFrameRateMax, control_word::kFrameRate};
  }
  const auto* row = std::find_if(std::begin(kKeyWords), std::end(kKeyWords),
                                 [&key](const KeyWord& candidate) { return key == candidate.key; });
  return row == std::end(kKeyWords) ? std::vector<std::string>()
                                    : std::vector<std::string>{row->word};
}

// As in a capture, a bit rate moves its bounds along, except those that are given.
void AddBounds(Values& asked) {
  const auto bitrate = asked.find("bitrate");
  if (bitrate == asked.end()) return;
  const int bitrate_bps = bitrate->second;
  asked.try_emplace("bitrate-min", bitrate_bps / kMinimumRatio);
  asked.try_emplace("bitrate-max", kMaximumRatio * bitrate_bps);
}

// The value that is asked for, else the one in force.
std::optional<int> ValueOf(const std::string& key, const Values& asked, const RtosStream& stream) {
  const auto value = asked.find(key);
  if (value != asked.end()) return value->second;
  for (const std::string& name : WordsOf(key, stream)) {
    const auto word = stream.control.find(name);
    if (word != stream.control.end()) return word->second;
  }
  return std::nullopt;
}

// Whether each lower bound stays at or below its upper bound.
bool AreOrdered(const Values& asked, const RtosStream& stream, std::string& error) {
  for (const auto& [low, high] : {std::pair("bitrate-min", "bitrate-max"),
                                  {"qp-min", "qp-max"},
                                  {"fps", IsThinned(stream) ? "capture-fps" : "fps"}}) {
    const std::optional<int> least = ValueOf(low, asked, stream);
    const std::optional<int> most = ValueOf(high, asked, stream);
    const bool is_changed = asked.contains(low) || asked.contains(high);
    if (!is_changed || !least || !most || *least <= *most) continue;
    error = Format("%s %d is above %s %d", low, *least, high, *most);
    return false;
  }
  return true;
}

// One request to the stream that the command line names.
class SteerCommand : public Command {
 public:
  int Run() final;

 protected:
  SteerCommand(CLI::App& tool, const char* name, const char* help, const std::string& footer);
  // False with `error`, which does not name the stream.
  virtual bool Request(const RtosStream& stream, std::string& error) = 0;

 private:
  std::string _stream;  // its number, session, or kind where only one stream is of that kind
};

SteerCommand::SteerCommand(CLI::App& tool, const char* name, const char* help,
                           const std::string& footer)
    : Command(tool, name, help, footer) {
  _app.add_option("STREAM", _stream,
                  "Its number, session or kind (h264, jpeg-trigger, ...), as `tessel top` shows it")
      ->required();
  AddRunningRtos();
}

int SteerCommand::Run() {
  const std::optional<RtosStream> stream = FindStream(_stream);
  if (!stream) return kFailed;
  std::string error;
  if (Request(*stream, error)) return kDone;
  Say(Format("stream %d: %s", stream->id, error.c_str()));
  return kFailed;
}

// Sets nothing when one of the assignments is wrong.
class SetCommand : public SteerCommand {
 public:
  explicit SetCommand(CLI::App& tool)
      : SteerCommand(tool, "set", "Change the rate control of a stream that another process runs",
                     "Example:\n  tessel set h264 bitrate=2M bitrate-max=4M fps=25\n\nKeys: " +
                         ControlNames() + "\n") {
    _app.add_option("KEY=VALUE", _assignments, "What to change")->required();
  }

 private:
  bool Request(const RtosStream& stream, std::string& error) override;

  std::vector<std::string> _assignments;
};

bool SetCommand::Request(const RtosStream& stream, std::string& error) {
  Values asked;
  for (const std::string& text : _assignments) {
    const ControlRow* row = nullptr;
    int value = 0;
    if (!ParseSetting(text, row, value, error)) return false;
    asked[row->name] = value;  // the last one of the same key counts
  }
  AddBounds(asked);
  if (!AreOrdered(asked, stream, error)) return false;
  for (const auto& [key, value] : asked) {
    for (const std::string& word : WordsOf(key, stream)) {
      if (!quill::host::SetControlWord(stream.id, word, value, error)) return false;
    }
  }
  return true;
}

class KeyCommand : public SteerCommand {
 public:
  explicit KeyCommand(CLI::App& tool)
      : SteerCommand(tool, "key", "Ask a stream that another process runs for a key frame",
                     "Example:\n  tessel key h264 --rtos /tmp/board\n") {}

 private:
  bool Request(const RtosStream& stream, std::string& error) override {
    return quill::host::RequestKeyFrame(stream.id, error);
  }
};

class TriggerCommand : public SteerCommand {
 public:
  explicit TriggerCommand(CLI::App& tool)
      : SteerCommand(tool, "trigger", "Ask a triggered stream of another process for a frame",
                     "Example:\n  tessel trigger jpeg-trigger --rtos /tmp/board\n") {}

 private:
  bool Request(const RtosStream& stream, std::string& error) override {
    return quill::host::TriggerFrame(stream.id, error);
  }
};

}  // namespace

std::unique_ptr<Command> AddSet(CLI::App& tool) { return std::make_unique<SetCommand>(tool); }
std::unique_ptr<Command> AddKey(CLI::App& tool) { return std::make_unique<KeyCommand>(tool); }
std::unique_ptr<Command> AddTrigger(CLI::App& tool) {
  return std::make_unique<TriggerCommand>(tool);
}

}  // namespace tessel::tool
