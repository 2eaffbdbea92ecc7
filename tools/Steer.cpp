#include "Steer.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "Console.h"
#include "Controls.h"

namespace tessel::tool {
namespace {

using quill::host::BoardStream;

struct Assignment {
  std::string word;  // of the rate-control block
  int value;
};

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
std::vector<std::string> WordsOf(const std::string& key, const BoardStream& stream) {
  if (key == "bitrate") return {"bitrate_target"};
  if (key == "capture-fps") return {"framerate_max"};
  if (key == "fps") {
    return HasElement(stream, "FrameDroper")
               ? std::vector<std::string>{"framerate"}
               : std::vector<std::string>{"framerate_max", "framerate"};
  }
  std::string word = key;
  std::replace(word.begin(), word.end(), '-', '_');
  return {word};
}

bool Parse(const std::string& text, const BoardStream& stream, std::vector<Assignment>& into,
           std::string& error) {
  const std::size_t equals = text.find('=');
  if (equals == text.npos) {
    error = Quoted(text) + " is not of the form key=value";
    return false;
  }
  const std::string key = text.substr(0, equals);
  const ControlRow* row = FindControl(key);
  if (row == nullptr) {
    error = "no key " + Quoted(key) + "; there are " + ControlNames();
    return false;
  }
  int value = 0;
  if (!ParseControl(*row, text.substr(equals + 1), value, error)) {
    error = key + ": " + error;
    return false;
  }
  for (const std::string& word : WordsOf(key, stream)) into.push_back({word, value});
  return true;
}

// Null when that word is not changed.
const Assignment* Find(const std::vector<Assignment>& changes, const char* word) {
  const auto place = std::find_if(changes.begin(), changes.end(),
                                  [word](const Assignment& change) { return change.word == word; });
  return place == changes.end() ? nullptr : &*place;
}

// As in a capture, a bit rate takes its bounds along, but for those that are given.
void AddBounds(std::vector<Assignment>& changes) {
  const Assignment* target = Find(changes, "bitrate_target");
  if (target == nullptr) return;
  const int bitrate_bps = target->value;
  if (Find(changes, "bitrate_max") == nullptr) {
    changes.push_back({"bitrate_max", kMaximumRatio * bitrate_bps});
  }
  if (Find(changes, "bitrate_min") == nullptr) {
    changes.push_back({"bitrate_min", bitrate_bps / kMinimumRatio});
  }
}

// Whether no bound among the changes lies on the wrong side of its other one.
bool AreOrdered(const std::vector<Assignment>& changes, std::string& error) {
  for (const auto& [low, high] : {std::pair("bitrate_min", "bitrate_max"), {"qp_min", "qp_max"}}) {
    const Assignment* least = Find(changes, low);
    const Assignment* most = Find(changes, high);
    if (least == nullptr || most == nullptr || least->value <= most->value) continue;
    error = Format("%s %d is above %s %d", low, least->value, high, most->value);
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
  const auto codec = stream.media.find("codec");
  std::string kind = codec == stream.media.end() ? "stream" : codec->second;
  if (HasElement(stream, "H264VBrc")) kind += "-vbrc";
  if (HasElement(stream, "FrameTrigger")) kind += "-trigger";
  return kind;
}

int Set(const SteerOptions& options) {
  return Steer(options, [&](const BoardStream& stream, std::string& error) {
    std::vector<Assignment> changes;
    for (const std::string& text : options.assignments) {
      if (!Parse(text, stream, changes, error)) return false;
    }
    AddBounds(changes);
    if (!AreOrdered(changes, error)) return false;
    return std::all_of(changes.begin(), changes.end(), [&](const Assignment& change) {
      return quill::host::SetBoardWord(stream.id, change.word, change.value, error);
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
