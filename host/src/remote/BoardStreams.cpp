// What runs on the real-time side, of this client and of others, and how it is steered.
#include "CurrentConnection.h"
#include "quill/AttrSet.h"
#include "quill/Host.h"

namespace quill::host {

using base::AttrSet;

namespace {

constexpr int kMostPages = 10'000;  // of the list: some millions of streams

// Asks the real-time side in use, or the one that listens.
bool AskBoard(AttrSet& args, std::string& error) {
  auto connection = stream::CurrentConnection::Await();
  if (connection == nullptr || !connection->IsAlive()) {
    error = "no real-time side runs here, and none is named to look at";
    const bool is_named = !FarSideSocket().empty();
    connection = is_named ? stream::CurrentConnection::Ensure(error) : nullptr;
  }
  return connection != nullptr && connection->Run(args, error);
}

StreamCounters ReadCounters(const AttrSet& report) {
  StreamCounters counters;
  const auto read = [&report](const char* key, std::uint64_t& into) {
    unsigned long long value = 0;
    if (report.Get(key, value)) into = value;
  };
  report.Get("session", counters.session);
  read("made", counters.made);
  read("delivered", counters.delivered);
  read("dropped", counters.dropped);
  read("thinned", counters.thinned);
  read("untriggered", counters.untriggered);
  read("refused", counters.refused);
  read("held", counters.held);
  return counters;
}

// The set inside the set `report` under `key`; empty when there is none.
AttrSet Inner(const AttrSet& report, const char* key) {
  const char* text = report.Get(key);
  return AttrSet(text == nullptr ? "" : text);
}

BoardStream ReadStream(const AttrSet& report) {
  BoardStream stream;
  report.Get("client", stream.client);
  report.Get("chain", stream.chain);
  report.Get("state", stream.state);
  const AttrSet media = Inner(report, "media");
  for (const auto& [key, value] : media.Pairs()) stream.media[key] = value;
  const AttrSet control = Inner(report, "control");
  for (const auto& [key, value] : control.Pairs()) control.Get(key.c_str(), stream.control[key]);
  stream.counters = ReadCounters(report);
  return stream;
}

bool RequestOf(int id, const char* word, std::string& error) {
  AttrSet args;
  args.Add("cmd", "tesselRequest");
  args.Add("stream", id);
  args.Add("word", word);
  return AskBoard(args, error);
}

}  // namespace

bool ListBoard(std::vector<BoardStream>& streams, std::string& error) {
  std::vector<BoardStream> listed;
  std::uint64_t from = 0;
  for (int page = 0; page < kMostPages; ++page) {
    AttrSet args;
    args.Add("cmd", "tesselList");
    if (from != 0) args.Add("from", base::HandleText(from));
    if (!AskBoard(args, error)) return false;
    const AttrSet reports = Inner(args, "streams");
    for (const auto& [id, report] : reports.Pairs()) {
      listed.push_back(ReadStream(AttrSet(report.c_str())));
      base::ConvertToImpl(id.c_str(), listed.back().id);
    }
    const std::uint64_t next = base::ReadHandle(args.Get("next"));
    if (args.Get("next") == nullptr) {
      streams = std::move(listed);
      return true;
    }
    if (next <= from) break;  // it would go round in circles
    from = next;
  }
  error = "the real-time side's list of streams does not end";
  return false;
}

bool SetBoardWord(int id, const std::string& word, int value, std::string& error) {
  AttrSet args;
  args.Add("cmd", "tesselSet");
  args.Add("stream", id);
  args.Add("word", word);
  args.Add("value", value);
  return AskBoard(args, error);
}

bool RequestKeyFrame(int id, std::string& error) { return RequestOf(id, "keyframe_req", error); }

bool TriggerFrame(int id, std::string& error) { return RequestOf(id, "trigger_req", error); }

}  // namespace quill::host
