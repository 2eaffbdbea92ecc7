// The connection that this process uses: made when a command needs it, made anew when it is lost.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "RtosConnection.h"

namespace quill::stream {

// Why a child after fork gets nothing from the real-time side.
inline constexpr char kForked[] = "the connection is the parent process's";

// Any thread.
class CurrentConnection {
 public:
  // The connection in use; opens one when there is none or it is dead. One thread opens it, without
  // a lock that readers need. The others wait for that thread, at most as long as an opening may
  // take, and share its outcome. Null with `error` set.
  static std::shared_ptr<RtosConnection> Ensure(std::string& error);
  // The connection in use, dead or alive; null before the first and in a child after fork. Does not
  // wait for one that is being opened.
  static std::shared_ptr<RtosConnection> Get();
  // As Get(), but waits for one that is being opened, as Ensure() does.
  static std::shared_ptr<RtosConnection> Await();

  // Adds what runs on each new connection before any other command. All of these together should
  // take no longer than one command. The opening thread.
  using Hook = std::function<void(RtosConnection&)>;
  static void AfterHandshake(Hook hook);
};

}  // namespace quill::stream
