#include "Transitions.h"

#include <algorithm>
#include <chrono>

#include "Callbacks.h"
#include "quill/Debug.h"
#include "quill/Host.h"
#include "Threads.h"
#include "Timeouts.h"

namespace quill::stream {

bool Service::Transitions::MayGoUp(Status target) const {
  const char* name = StatusName(target);
  if (Failed(!_service.Enable(), "!Enable()", _service.Name(), " does not go up to ", name)) {
    return false;
  }
  return !Failed(_service.IsLost(), "IsLost()",
                 "the real-time side is gone: Close() and Open() again");
}

bool Service::Transitions::IsFree() const {
  return _depth == 0 || _mover == std::this_thread::get_id();
}

// A mover that goes down may be waiting for the callback that this host thread runs.
bool Service::Transitions::WaitForTurn(std::unique_lock<std::mutex>& lock) {
  const bool runs_callback = IsHostThread();
  _is_free.wait_for(lock, CommandTimeout(),
                    [&] { return IsFree() || (runs_callback && _goes_down); });
  return IsFree();
}

void Service::Transitions::Enter(bool down) {
  if (_depth++ == 0) _mover = std::this_thread::get_id();
  if (!down || _goes_down) return;
  _goes_down = true;
  _is_free.notify_all();
}

bool Service::Transitions::BeginUp(Status target) {
  std::unique_lock lock(_mutex);
  const bool is_free = WaitForTurn(lock);
  if (Failed(!is_free, "!is_free", "another change is under way: ", _service.Name(),
             " does not go up to ", StatusName(target))) {
    return false;
  }
  if (_is_finished || !MayGoUp(target)) return false;
  Enter(false);
  return true;
}

bool Service::Transitions::BeginDown(Status target) {
  std::unique_lock lock(_mutex);
  if (!WaitForTurn(lock)) {
    _deferred = std::min(_deferred.value_or(target), target);
    return false;
  }
  Enter(true);
  return true;
}

void Service::Transitions::End() {
  std::unique_lock lock(_mutex);
  while (_depth == 1 && _deferred) {
    const Status target = *_deferred;
    _deferred.reset();
    Enter(true);
    lock.unlock();
    if (_service.LastStatus() > target) static_cast<void>(_service.IStatus::StatusDown(target));
    lock.lock();
    --_depth;
  }
  if (--_depth > 0) return;
  _goes_down = false;
  _is_free.notify_all();
}

int Service::Transitions::Depth() {
  const std::lock_guard lock(_mutex);
  return _depth > 0 && _mover == std::this_thread::get_id() ? _depth : 0;
}

void Service::Transitions::Unwind(int depth) {
  while (Depth() > depth) End();
}

void Service::Transitions::Finish() {
  {
    std::unique_lock lock(_mutex);
    _is_free.wait(lock, [this] { return IsFree(); });
    _is_finished = true;  // a callback that still runs may be about to open it again
    Enter(true);
  }
  if (_service.CanStatusDown()) _service.StatusDown(Status::kNull);
  End();
  if (!IsHostThread()) _service._callbacks->WaitUntilNoneRuns();
}

}  // namespace quill::stream
