#include "RemoteApplications.h"

#include <utility>

#include "ChainNeeds.h"
#include "InstallPaths.h"
#include "messages/Applications.h"
#include "quill/Host.h"

namespace quill::stream {

using base::AttrSet;
namespace link = tessel::link;
using std::chrono::nanoseconds;

namespace {

// The inputs as the options name them. False, with `error`, when a name cannot be written as text.
bool DescribeBoard(const host::Options& options, link::BoardInputs& board, std::string& error) {
  board = {AbsoluteInput(options.sensor), AbsoluteInput(options.mic), options.loop, options.paced,
           options.session_slots};
  const auto is_text = [](const std::string& name) { return AttrSet().Add("name", name); };
  if (!is_text(board.sensor)) {
    error = "sensor \"" + options.sensor + "\" has a name with unbalanced braces";
    return false;
  }
  if (!is_text(board.mic)) {
    error = "microphone \"" + options.mic + "\" has a name with unbalanced braces";
    return false;
  }
  return true;
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

// Enters what the application may touch, and returns the descriptors that go with it.
std::vector<int> EnterResources(const RemoteApplications::Resources& resources,
                                link::Grant& grant) {
  std::vector<int> fds;
  for (const auto& session : resources.sessions) {
    const SessionMemory& memory = *session->Memory();
    grant.sessions.emplace_back(session->Name(),
                                link::Area{memory.area.Offset(), memory.area.Bytes().size()});
    fds.push_back(memory.frame_doorbell.Fd());
    fds.push_back(memory.slot_doorbell.Fd());
  }
  for (const auto& block : resources.blocks) {
    grant.blocks.emplace_back(block->area.Offset(), block->asked_bytes);
  }
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
  link::Grant grant;
  if (!DescribeBoard(host::GetOptions(), grant.board, error)) return false;
  ChainNeeds needs = ReadChainNeeds(body);
  Resources resources;
  if (!MakeSessions(needs.sessions, resources.sessions, error)) return false;
  resources.blocks = std::move(needs.blocks);
  const std::vector<int> fds = EnterResources(resources, grant);
  if (!Write(grant, body, error)) return false;
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
    link::CreateAnswer answer;
    std::string error;
    // Goes on: an application whose media cannot be read exists all the same.
    if (!ReadAnswer(created, answer, error)) answer.media.reset();
    const std::uint64_t handle = answer.object_base.number;
    if (handle == 0) return;
    {
      const std::lock_guard lock(_mutex);
      // A handle that is in use already adds to what its application may touch.
      Resources& adopted = _applications[handle];
      adopted.sessions.insert(adopted.sessions.end(), resources.sessions.begin(),
                              resources.sessions.end());
      adopted.blocks.insert(adopted.blocks.end(), resources.blocks.begin(), resources.blocks.end());
      adopted.media = answer.media;
      outcome->handle = handle;
      if (outcome->is_wanted) return;
    }
    DestroyLater(handle);
  };
}

CommandChannel::OnAnswer RemoteApplications::Forget(std::uint64_t handle) {
  return [this, handle](const AttrSet& answer) {
    if (link::RefusalIn(answer) != nullptr) return;  // it may live on
    Resources gone;                                  // destroyed after the lock
    const std::lock_guard lock(_mutex);
    const auto place = _applications.find(handle);
    if (place == _applications.end()) return;
    gone = std::move(place->second);
    _applications.erase(place);
  };
}

bool RemoteApplications::Destroy(const AttrSet& body, nanoseconds timeout, AttrSet& answer,
                                 std::string& error) {
  link::Destroy request;
  return Read(body, request, error) &&
         _channel.Request(body, {}, timeout, Forget(request.object_base.number), answer, error);
}

void RemoteApplications::DestroyLater(std::uint64_t handle) {
  AttrSet body;
  std::string error;
  if (WriteRequest(link::Destroy{{handle}, std::nullopt}, body, error)) {
    _channel.Post(body, Forget(handle));
  }
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

std::optional<AttrSet> RemoteApplications::MediaOf(std::uint64_t handle) const {
  const std::lock_guard lock(_mutex);
  const auto place = _applications.find(handle);
  if (place == _applications.end()) return std::nullopt;
  return place->second.media;
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
