// The applications of one connection: what each may touch in the shared window, and how long.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CommandChannel.h"
#include "quill/AttrSet.h"
#include "Session.h"
#include "Window.h"

namespace quill::stream {

// An application is created on the real-time side by the first answer and destroyed by another.
// In between the real-time side may write into its sessions and blocks, so they stay handed out,
// whatever the client does meanwhile. Any thread.
class RemoteApplications {
 public:
  struct Resources {
    std::vector<std::shared_ptr<Session>> sessions;
    std::vector<std::shared_ptr<const Window::Block>> blocks;
    std::optional<base::AttrSet> media;  // what it delivers, where the answer told it
  };
  using ByHandle = std::map<std::uint64_t, Resources>;

  // Borrows `channel`.
  explicit RemoteApplications(CommandChannel& channel) : _channel(channel) {}

  // Serve "tesselCreate" and "tesselDestroy"; False with `error` set. An application whose answer
  // comes after the time-out is destroyed at once. Create() completes `body`.
  bool Create(base::AttrSet& body, std::chrono::nanoseconds timeout, base::AttrSet& answer,
              std::string& error);
  bool Destroy(const base::AttrSet& body, std::chrono::nanoseconds timeout, base::AttrSet& answer,
               std::string& error);

  // The session `name` of the application `handle`, or null.
  std::shared_ptr<Session> FindSession(std::uint64_t handle, const std::string& name) const;
  // All sessions of the application `handle`; empty when there is no such application.
  std::vector<std::shared_ptr<Session>> SessionsOf(std::uint64_t handle) const;
  // The blocks that steer the application `handle`; empty when there is no such application.
  std::vector<std::weak_ptr<const Window::Block>> BlocksOf(std::uint64_t handle) const;
  // What the application `handle` delivers; nothing when the real-time side wants to be asked.
  std::optional<base::AttrSet> MediaOf(std::uint64_t handle) const;
  // Hands all applications over, once the real-time side can touch nothing any more. Wire thread.
  ByHandle TakeAll();

 private:
  struct Outcome;
  // What the answer to a creation does. It comes in the order of answers and events, so no event of
  // an application comes before the application is known here.
  CommandChannel::OnAnswer Adopt(Resources resources, std::shared_ptr<Outcome> outcome);
  // What the answer to a destruction does.
  CommandChannel::OnAnswer Forget(std::uint64_t handle);
  void DestroyLater(std::uint64_t handle);

  CommandChannel& _channel;
  mutable std::mutex _mutex;
  ByHandle _applications;  // guarded by _mutex
};

}  // namespace quill::stream
