// The life of an application: created, described, moved between its states, destroyed; and what it
// reports unasked.
#pragma once

#include "messages/Request.h"

namespace tessel::link {

enum class Status { kReady, kPlay };
inline constexpr const char* kStatusWords[] = {"ready", "play"};
constexpr std::span<const char* const> WordsOf(Status) { return kStatusWords; }

// A piece of the window, in bytes from its begin.
struct Area {
  static constexpr char kName[] = "area";
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  static constexpr auto Fields() {
    return std::tuple{Field("offset", &Area::offset), Field("size", &Area::size)};
  }
};

// Where the inputs of an application's chain come from (doc/elements.md), as the client's options
// say.
struct BoardInputs {
  static constexpr char kName[] = "board";
  std::string sensor = "test";
  std::string mic = "test";
  bool loop = true;   // a media file starts anew at its end; else the stream ends there
  bool paced = true;  // live; else as fast as the consumer takes frames
  int slots = 24;     // most frames in flight of one stream
  static constexpr auto Fields() {
    return std::tuple{
        Field("sensor", &BoardInputs::sensor, kMayLack), Field("mic", &BoardInputs::mic, kMayLack),
        Field("loop", &BoardInputs::loop, kMayLack), Field("paced", &BoardInputs::paced, kMayLack),
        Field("slots", &BoardInputs::slots, kMayLack)};
  }
};

struct CreateAnswer {
  static constexpr char kName[] = "tesselCreate answer";
  Handle object_base;  // of the application
  // What it delivers, as MediaAnswer has it; a real-time side may want to be asked for it.
  std::optional<AttrSet> media;
  static constexpr auto Fields() {
    return std::tuple{Field("object_base", &CreateAnswer::object_base),
                      Field("media", &CreateAnswer::media)};
  }
};

// What the host adds to a client's request for an application. Two eventfds a session go with it,
// in their order: the one that announces frames and the one that announces free slots.
struct Grant {
  BoardInputs board;
  // What the application may touch. Blocks: the offset in the window and the size of each, in
  // bytes.
  List<std::string, Area> sessions;
  List<std::uint64_t, std::uint64_t> blocks;
  static constexpr auto Fields() {
    return std::tuple{Field("board", &Grant::board, kMayLack), Field("sessions", &Grant::sessions),
                      Field("blocks", &Grant::blocks)};
  }
};

struct Create : Grant {
  static constexpr char kName[] = "tesselCreate";
  using Answer = CreateAnswer;
  std::string type = "Application";
  std::string layout;            // "type=pipeline,layout={chain}"
  std::optional<Status> status;  // to begin in; without one: ready
  static constexpr auto Fields() {
    return std::tuple_cat(
        std::tuple{Field("type", &Create::type, kMayLack), Field("layout", &Create::layout),
                   Field("status", &Create::status)},
        Grant::Fields());
  }
};

struct MediaAnswer {
  static constexpr char kName[] = "tesselMedia answer";
  AttrSet media;  // quill/MediaKeys.h
  static constexpr auto Fields() { return std::tuple{Field("media", &MediaAnswer::media)}; }
};

struct DescribeMedia {
  static constexpr char kName[] = "tesselMedia";
  using Answer = MediaAnswer;
  Handle object_base;
  std::optional<std::string> session_name;  // for who reads along; not looked at
  static constexpr auto Fields() {
    return std::tuple{Field("object_base", &DescribeMedia::object_base),
                      Field("session_name", &DescribeMedia::session_name)};
  }
};

struct SetStatus {
  static constexpr char kName[] = "tesselStatus";
  using Answer = Done;
  Handle object_base;
  std::optional<std::string> session_name;  // as above
  Status status = Status::kReady;
  static constexpr auto Fields() {
    return std::tuple{Field("object_base", &SetStatus::object_base),
                      Field("session_name", &SetStatus::session_name),
                      Field("status", &SetStatus::status)};
  }
};

struct Destroy {
  static constexpr char kName[] = "tesselDestroy";
  using Answer = Done;
  Handle object_base;
  std::optional<std::string> session_name;  // as above
  static constexpr auto Fields() {
    return std::tuple{Field("object_base", &Destroy::object_base),
                      Field("session_name", &Destroy::session_name)};
  }
};

// Sent unasked. After either kind the application delivers nothing more.
struct Event {
  static constexpr char kName[] = "event";
  enum class Kind { kEnd, kFailed };  // the input is over; an element gave up
  Kind event = Kind::kEnd;
  Handle object_base;  // of the application
  std::optional<std::string> text;
  static constexpr auto Fields() {
    return std::tuple{Field("event", &Event::event), Field("object_base", &Event::object_base),
                      Field("text", &Event::text)};
  }
};
inline constexpr const char* kEventWords[] = {"end", "failed"};
constexpr std::span<const char* const> WordsOf(Event::Kind) { return kEventWords; }

}  // namespace tessel::link
