// What a watcher asks: it lists the streams of all clients, and steers them.
#pragma once

#include "messages/Request.h"
#include "quill/StreamWords.h"
#include "SessionLayout.h"

namespace tessel::link {

enum class StreamState { kReady, kPlaying, kEnded, kFailed };
inline constexpr const char* kStreamStateWords[] = {"ready", "play", "ended", "failed"};
constexpr std::span<const char* const> WordsOf(StreamState) { return kStreamStateWords; }

namespace counter_name = quill::stream::counter_name;

// The counters of a session, in the order in which they are listed.
inline constexpr std::tuple kCounterFields{
    Field(counter_name::kPublished, &SessionCounters::published, kMayLack),
    Field(counter_name::kDelivered, &SessionCounters::delivered, kMayLack),
    Field(counter_name::kDropped, &SessionCounters::dropped, kMayLack),
    Field(counter_name::kThinned, &SessionCounters::thinned, kMayLack),
    Field(counter_name::kUntriggered, &SessionCounters::untriggered, kMayLack),
    Field(counter_name::kRefused, &SessionCounters::refused, kMayLack),
    Field(counter_name::kHeld, &SessionCounters::held, kMayLack)};

struct StreamReport : SessionCounters {
  static constexpr char kName[] = "stream";
  std::string chain;  // class names of its elements, "+" between them
  std::string session;
  StreamState state = StreamState::kReady;
  AttrSet media;                                  // quill/MediaKeys.h
  std::optional<List<std::string, int>> control;  // words of its rate-control block, if it has one
  int client = 0;                                 // the process that it belongs to
  static constexpr auto Fields() {
    return std::tuple_cat(std::tuple{Field("chain", &StreamReport::chain, kMayLack),
                                     Field("session", &StreamReport::session, kMayLack),
                                     Field("state", &StreamReport::state),
                                     Field("media", &StreamReport::media, kMayLack)},
                          kCounterFields,
                          std::tuple{Field("control", &StreamReport::control),
                                     Field("client", &StreamReport::client, kMayLack)});
  }
};

struct ListAnswer {
  static constexpr char kName[] = "tesselList answer";
  List<int, StreamReport> streams;  // by their numbers
  std::optional<Handle> next;       // from which the next page begins, where there is one
  static constexpr auto Fields() {
    return std::tuple{Field("streams", &ListAnswer::streams), Field("next", &ListAnswer::next)};
  }
};

struct ListStreams {
  static constexpr char kName[] = "tesselList";
  using Answer = ListAnswer;
  std::optional<Handle> from;  // nothing for the first page
  static constexpr auto Fields() { return std::tuple{Field("from", &ListStreams::from)}; }
};

// Stores a word of a stream's rate-control block.
struct SetWord {
  static constexpr char kName[] = "tesselSet";
  using Answer = Done;
  int stream = 0;
  std::string word;
  int value = 0;
  static constexpr auto Fields() {
    return std::tuple{Field("stream", &SetWord::stream), Field("word", &SetWord::word),
                      Field("value", &SetWord::value)};
  }
};

// Counts a request in a stream's rate-control block: its word goes up by one.
struct CountRequest {
  static constexpr char kName[] = "tesselRequest";
  using Answer = Done;
  int stream = 0;
  std::string word;
  static constexpr auto Fields() {
    return std::tuple{Field("stream", &CountRequest::stream), Field("word", &CountRequest::word)};
  }
};

}  // namespace tessel::link
