#include "Steer.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>

#include "quill/MediaKeys.h"
#include "quill/StreamWords.h"

#include "Console.h"
#include "ControlText.h"

namespace tessel::tool {
namespace {

namespace control_word = quill::stream::control_word;
using quill::host::BoardStream;

using Values = std::map<std::string, int>;  // by key

bool IsMeant(const BoardStream& stream, const std::string& name) {
  const bool is_number =
      !name.empty() && std::all_of(name.begin(), name.end(),
                                   [](unsigned char digit) { return std::isdigit(digit) != 0; });
  if (is_number) return std::to_string(stream.id) == name;
  return stream.counters.session == name || StreamKind(stream) == name;
}

std::string Listed(const std::vector<BoardStream>& streams) {
  std::string text;
  for (const BoardStream& stream : streams) {
    text += Format("%s%d (%s of process %d)", text.empty() ? "" : ", ", stream.id,
                   StreamKind(stream).c_str(), static_cast<int>(stream.client));
  }
  return text;
}

// The one stream meant by `name`; none, and said why, when that is not one.
std::optional<BoardStream> FindStream(const std::string& name) {
  std::vector<BoardStream> streams;
  std::string error;
  if (!quill::host::ListBoard(streams, error)) {
    Say(error);
    return std::nullopt;
  }
  std::vector<BoardStream> meant;
  std::copy_if(streams.begin(), streams.end(), std::back_inserter(meant),
               [&](const BoardStream& stream) { return IsMeant(stream, name); });
  if (meant.size() == 1) return meant.front();
  if (meant.size() > 1) {
    Say(Quoted(name) + " is not the only one: give the number of " + Listed(meant));
  } else {
    Say("no stream " + Quoted(name) + "; there " +
        (streams.empty() ? "is none" : "are " + Listed(streams)));
  }
  return std::nullopt;
}

// The frame rate of a stream that is thinned is not the one that the camera captures at.
bool IsThinned(const BoardStream& stream) { return HasElement(stream, "FrameDroper"); }

// Of the rate-control block.
std::vector<std::string> WordsOf(const std::string& key, const BoardStream& stream) {
  if (key == "bitrate") return {control_word::kBitRateTarget};
  if (key == "capture-fps") return {control_word::kFrameRateMax};
  if (key == "fps" && IsThinned(stream)) return {control_word::kFrameRate};
  if (key == "fps") return {control_word::kFrameRateMax, control_word::kFrameRate};
  std::string word = key;
  std::replace(word.begin(), word.end(), '-', '_');
  return {word};
}

// As in a capture, a bit rate takes its bounds along, but for those that are given.
void AddBounds(Values& asked) {
  const auto bitrate = asked.find("bitrate");
  if (bitrate == asked.end()) return;
  const int bitrate_bps = bitrate->second;
  asked.try_emplace("bitrate-min", bitrate_bps / kMinimumRatio);
  asked.try_emplace("bitrate-max", kMaximumRatio * bitrate_bps);
}

// Asked for, else in force.
std::optional<int> ValueOf(const std::string& key, const Values& asked, const BoardStream& stream) {
  const auto value = asked.find(key);
  if (value != asked.end()) return value->second;
  const auto word = stream.control.find(WordsOf(key, stream).front());
  return word == stream.control.end() ? std::nullopt : std::optional(word->second);
}

// Whether no bound comes to lie on the wrong side of its other one.
bool AreOrdered(const Values& asked, const BoardStream& stream, std::string& error) {
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

// Runs one request on the stream that the options name.
template <typename Request>
int Steer(const SteerOptions& options, Request&& request) {
  const std::optional<BoardStream> stream = FindStream(options.stream);
  if (!stream) return kFailed;
  std::string error;
  if (request(*stream, error)) return kDone;
  Say(Format("stream %d: %s", stream->id, error.c_str()));
  return kFailed;
}

}  // namespace

bool HasElement(const BoardStream& stream, const char* name) {
  return stream.chain.find(name) != std::string::npos;
}

std::string StreamKind(const BoardStream& stream) {
  const auto codec = stream.media.find(quill::stream::media_key::kCodec);
  std::string kind = codec == stream.media.end() ? "stream" : codec->second;
  if (HasElement(stream, "H264VBrc")) kind += "-vbrc";
  if (HasElement(stream, "FrameTrigger")) kind += "-trigger";
  return kind;
}

int Set(const SteerOptions& options) {
  return Steer(options, [&](const BoardStream& stream, std::string& error) {
    Values asked;
    for (const std::string& text : options.assignments) {
      const ControlRow* row = nullptr;
      int value = 0;
      if (!ParseSetting(text, row, value, error)) return false;
      asked[row->name] = value;  // of the same key the last one counts
    }
    AddBounds(asked);
    if (!AreOrdered(asked, stream, error)) return false;
    return std::all_of(asked.begin(), asked.end(), [&](const auto& value) {
      const std::vector<std::string> words = WordsOf(value.first, stream);
      return std::all_of(words.begin(), words.end(), [&](const std::string& word) {
        return quill::host::SetBoardWord(stream.id, word, value.second, error);
      });
    });
  });
}

int RequestKey(const SteerOptions& options) {
  return Steer(options, [](const BoardStream& stream, std::string& error) {
    return quill::host::RequestKeyFrame(stream.id, error);
  });
}

int Trigger(const SteerOptions& options) {
  return Steer(options, [](const BoardStream& stream, std::string& error) {
    return quill::host::TriggerFrame(stream.id, error);
  });
}

}  // namespace tessel::tool
