#include "CurrentConnection.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include "ForkedChild.h"
#include "Timeouts.h"

namespace quill::stream {
namespace {

struct State {
  std::mutex mutex;
  std::condition_variable opened;
  // All guarded by mutex.
  std::shared_ptr<RtosConnection> current;
  bool is_opening = false;
  std::string failure;  // of the last opening; empty when it succeeded
  std::vector<CurrentConnection::Hook> hooks;
};

State& TheState() {
  static auto* state = new State;  // never destroyed: no waiting at exit
  return *state;
}

// False when the opening under way takes too long. REQUIRES: `lock` holds the state's mutex.
bool WaitForOpening(State& state, std::unique_lock<std::mutex>& lock) {
  return state.opened.wait_for(lock, StartTimeout() + CommandTimeout(),
                               [&state] { return !state.is_opening; });
}

// Opens a connection without the lock.
std::shared_ptr<RtosConnection> Open(const std::vector<CurrentConnection::Hook>& hooks,
                                     std::string& error) {
  auto connection = RtosConnection::Open(error);
  if (connection == nullptr) return nullptr;
  for (const auto& hook : hooks) hook(*connection);
  return connection;
}

}  // namespace

std::shared_ptr<RtosConnection> CurrentConnection::Ensure(std::string& error) {
  if (IsForkedChild()) {
    error = kForked;
    return nullptr;
  }
  State& state = TheState();
  std::shared_ptr<RtosConnection> lost;  // destroyed after the lock
  std::unique_lock lock(state.mutex);
  if (state.is_opening) {
    const bool has_ended = WaitForOpening(state, lock);
    error = has_ended ? state.failure : "another thread still starts the real-time side";
    if (!error.empty()) return nullptr;
  }
  if (state.current != nullptr && state.current->IsAlive()) return state.current;
  state.is_opening = true;
  const std::vector<Hook> hooks = state.hooks;
  lock.unlock();
  std::shared_ptr<RtosConnection> fresh;
  try {
    fresh = Open(hooks, error);
  } catch (const std::exception& failure) {  // those that wait are told as well
    error = failure.what();
  }
  lock.lock();
  if (fresh != nullptr) lost = std::exchange(state.current, fresh);
  state.failure = fresh == nullptr ? error : "";
  state.is_opening = false;
  state.opened.notify_all();
  return fresh;
}

std::shared_ptr<RtosConnection> CurrentConnection::Get() {
  if (IsForkedChild()) return nullptr;
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  return state.current;
}

std::shared_ptr<RtosConnection> CurrentConnection::Await() {
  if (IsForkedChild()) return nullptr;
  State& state = TheState();
  std::unique_lock lock(state.mutex);
  WaitForOpening(state, lock);
  return state.current;
}

void CurrentConnection::AfterHandshake(Hook hook) {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  state.hooks.push_back(std::move(hook));
}

}  // namespace quill::stream
