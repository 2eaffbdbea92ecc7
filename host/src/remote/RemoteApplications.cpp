#include "RemoteApplications.h"

#include <utility>

#include "ChainNeeds.h"
#include "InstallPaths.h"
#include "quill/Host.h"
#include "quill/ostream_string.h"

namespace quill::stream {

using base::AttrSet;
using std::chrono::nanoseconds;

namespace {

// False, with `error`, when the name of an input cannot be written as text.
bool DescribeBoard(const host::Options& options, AttrSet& board, std::string& error) {
  if (!board.Add("sensor", AbsoluteInput(options.sensor))) {
    error = "sensor \"" + options.sensor + "\" has a name with unbalanced braces";
    return false;
  }
  if (!board.Add("mic", AbsoluteInput(options.mic))) {
    error = "microphone \"" + options.mic + "\" has a name with unbalanced braces";
    return false;
  }
  board.Add("loop", options.loop);
  board.Add("paced", options.paced);
  return board.Add("slots", options.session_slots);
}

AttrSet DescribeArea(const WindowArea& area) {
  AttrSet text;
  text.Add("offset", area.Offset());
  text.Add("size", area.Bytes().size());
  return text;
}

// Makes the sessions of `names`. False with `error` set when one has no room.
bool MakeSessions(const std::vector<std::string>& names,
                  std::vector<std::shared_ptr<Session>>& sessions, std::string& error) {
  for (const std::string& name : names) {
    auto session = Session::Create(name);
    if (session == nullptr) {
      error = "no room for session " + name;
      return false;
    }
    sessions.push_back(std::move(session));
  }
  return true;
}

// Adds to `body` what the application may touch, and returns the descriptors that go with it.
std::vector<int> DescribeResources(const RemoteApplications::Resources& resources, AttrSet& body) {
  std::vector<int> fds;
  AttrSet areas;
  for (const auto& session : resources.sessions) {
    const SessionMemory& memory = *session->Memory();
    areas.Add(session->Name().c_str(), DescribeArea(memory.area).ToString(false));
    fds.push_back(memory.frame_doorbell.Fd());
    fds.push_back(memory.slot_doorbell.Fd());
  }
  AttrSet blocks;
  for (const auto& block : resources.blocks) {
    blocks.Add(std::to_string(block->area.Offset()).c_str(), block->asked_bytes);
  }
  body.Add("sessions", areas.ToString(false));
  body.Add("blocks", blocks.ToString(false));
  return fds;
}

}  // namespace

// What became of a creation. Guarded by _mutex.
struct RemoteApplications::Outcome {
  bool is_wanted = true;     // its creator waits, or has got the answer
  std::uint64_t handle = 0;  // 0 until the application is adopted
};

bool RemoteApplications::Create(AttrSet& body, nanoseconds timeout, AttrSet& answer,
                                std::string& error) {
  AttrSet board;
  if (!DescribeBoard(host::GetOptions(), board, error)) return false;
  ChainNeeds needs = ReadChainNeeds(body);
  Resources resources;
  if (!MakeSessions(needs.sessions, resources.sessions, error)) return false;
  resources.blocks = std::move(needs.blocks);
  body.Add("board", board.ToString(false));
  const std::vector<int> fds = DescribeResources(resources, body);
  const auto outcome = std::make_shared<Outcome>();
  if (_channel.Request(body, fds, timeout, Adopt(std::move(resources), outcome), answer, error)) {
    return true;
  }
  {
    const std::lock_guard lock(_mutex);
    outcome->is_wanted = false;
    if (outcome->handle == 0) return false;
  }
  DestroyLater(outcome->handle);
  return false;
}

CommandChannel::OnAnswer RemoteApplications::Adopt(Resources resources,
                                                   std::shared_ptr<Outcome> outcome) {
  return [this, resources = std::move(resources),
          outcome = std::move(outcome)](const AttrSet& created) {
    const std::uint64_t handle = base::ReadHandle(created.Get("object_base"));
    if (handle == 0) return;
    {
      const std::lock_guard lock(_mutex);
      _applications[handle] = resources;
      outcome->handle = handle;
      if (outcome->is_wanted) return;
    }
    DestroyLater(handle);
  };
}

CommandChannel::OnAnswer RemoteApplications::Forget(std::uint64_t handle) {
  return [this, handle](const AttrSet&) {
    Resources gone;  // destroyed after the lock
    const std::lock_guard lock(_mutex);
    const auto place = _applications.find(handle);
    if (place == _applications.end()) return;
    gone = std::move(place->second);
    _applications.erase(place);
  };
}

bool RemoteApplications::Destroy(const AttrSet& body, nanoseconds timeout, AttrSet& answer,
                                 std::string& error) {
  const std::uint64_t handle = base::ReadHandle(body.Get("object_base"));
  if (handle == 0) {
    error = "no object_base=";
    return false;
  }
  return _channel.Request(body, {}, timeout, Forget(handle), answer, error);
}

void RemoteApplications::DestroyLater(std::uint64_t handle) {
  AttrSet body;
  body.Add("cmd", "tesselDestroy");
  body.Add("object_base", base::HandleText(handle));
  _channel.Post(body, Forget(handle));
}

std::shared_ptr<Session> RemoteApplications::FindSession(std::uint64_t handle,
                                                         const std::string& name) const {
  for (const auto& session : SessionsOf(handle)) {
    if (session->Name() == name) return session;
  }
  return nullptr;
}

std::vector<std::shared_ptr<Session>> RemoteApplications::SessionsOf(std::uint64_t handle) const {
  const std::lock_guard lock(_mutex);
  const auto place = _applications.find(handle);
  if (place == _applications.end()) return {};
  return place->second.sessions;
}

std::vector<std::weak_ptr<const Window::Block>> RemoteApplications::BlocksOf(
    std::uint64_t handle) const {
  const std::lock_guard lock(_mutex);
  const auto place = _applications.find(handle);
  if (place == _applications.end()) return {};
  return {place->second.blocks.begin(), place->second.blocks.end()};
}

RemoteApplications::ByHandle RemoteApplications::TakeAll() {
  const std::lock_guard lock(_mutex);
  return std::exchange(_applications, {});
}

}  // namespace quill::stream
