// The first request on a connection, which brings the client's window.
#pragma once

#include "messages/Request.h"
#include "SessionLayout.h"

namespace tessel::link {

struct HelloAnswer {
  static constexpr char kName[] = "hello answer";
  std::optional<int> pid;  // the process that plays the real-time side
  static constexpr auto Fields() { return std::tuple{Field("pid", &HelloAnswer::pid)}; }
};

// With one descriptor, the window's.
struct Hello {
  static constexpr char kName[] = "hello";
  using Answer = HelloAnswer;
  int version = kSessionVersion;
  Handle base;  // the window's address on the Linux side
  static constexpr auto Fields() {
    return std::tuple{Field("version", &Hello::version), Field("base", &Hello::base)};
  }
};

}  // namespace tessel::link
