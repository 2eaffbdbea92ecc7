// What runs on the real-time side, of this client and of others, and how it is steered.
#include "CurrentConnection.h"
#include "messages/Streams.h"
#include "quill/AttrSet.h"
#include "quill/Host.h"

namespace quill::host {

using base::AttrSet;
namespace link = tessel::link;

namespace {

constexpr int kMostPages = 10'000;  // of the list: some millions of streams

// Asks the real-time side in use, or the one that listens.
template <typename Request>
bool Ask(const Request& request, typename Request::Answer& answer, std::string& error) {
  auto connection = stream::CurrentConnection::Await();
  if (connection == nullptr || !connection->IsAlive()) {
    error = "no real-time side runs here, and none is named to look at";
    const bool is_named = !RtosSocket().empty();
    connection = is_named ? stream::CurrentConnection::Ensure(error) : nullptr;
  }
  AttrSet args;
  return connection != nullptr && link::WriteRequest(request, args, error) &&
         connection->Run(args, error) && link::ReadAnswer(args, answer, error);
}

RtosStream ToRtosStream(int id, const link::StreamReport& report) {
  RtosStream stream;
  stream.id = id;
  stream.client = report.client;
  stream.chain = report.chain;
  stream.state = link::WordOf(report.state);
  for (const auto& [key, value] : report.media.Pairs()) stream.media[key] = value;
  if (report.control) stream.control = {report.control->begin(), report.control->end()};
  stream.counters = {.session = report.session,
                     .published = report.published,
                     .delivered = report.delivered,
                     .dropped = report.dropped,
                     .thinned = report.thinned,
                     .untriggered = report.untriggered,
                     .refused = report.refused,
                     .held = report.held};
  return stream;
}

bool CountRequest(int id, const char* word, std::string& error) {
  link::Done done;
  return Ask(link::CountRequest{id, word}, done, error);
}

}  // namespace

bool ListRtosStreams(std::vector<RtosStream>& streams, std::string& error) {
  std::vector<RtosStream> listed;
  link::ListStreams request;
  for (int page = 0; page < kMostPages; ++page) {
    link::ListAnswer answer;
    if (!Ask(request, answer, error)) return false;
    for (const auto& [id, report] : answer.streams) listed.push_back(ToRtosStream(id, report));
    if (!answer.next) {
      streams = std::move(listed);
      return true;
    }
    const std::uint64_t from = request.from ? request.from->number : 0;
    if (answer.next->number <= from) break;  // it would go round in circles
    request.from = answer.next;
  }
  error = "the real-time side's list of streams does not end";
  return false;
}

bool SetControlWord(int id, const std::string& word, int value, std::string& error) {
  link::Done done;
  return Ask(link::SetWord{id, word, value}, done, error);
}

bool RequestKeyFrame(int id, std::string& error) {
  return CountRequest(id, stream::control_word::kKeyFrameRequest, error);
}

bool TriggerFrame(int id, std::string& error) {
  return CountRequest(id, stream::control_word::kTriggerRequest, error);
}

}  // namespace quill::host
