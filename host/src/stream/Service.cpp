#include "quill/Service.h"

#include <cstring>

#include "Callbacks.h"
#include "quill/Debug.h"
#include "Threads.h"
#include "Timeouts.h"
#include "Transitions.h"

namespace quill::stream {
namespace {

constexpr const char* kNames[] = {"null", "ready", "play", "pause"};

bool IsStatus(IStatus::Status status) {
  const int number = static_cast<int>(status);
  const bool is_one = number >= 0 && number < static_cast<int>(std::size(kNames));
  return !Failed(!is_one, "!IsStatus(status)", "no status: ", number);
}

IStatus::Status Beside(const IStatus& service, int step) {
  return static_cast<IStatus::Status>(static_cast<int>(service.LastStatus()) + step);
}

}  // namespace

// Scoped lock on a service's status changes. An override of an after-hook need not call its base
// version, so the destructor also ends changes begun inside.
class Service::TransitionLock {
 public:
  TransitionLock(Service& service, bool up, Status target)
      : _transitions(*service._transitions),
        _depth(_transitions.Depth()),
        _is_ours(up ? _transitions.BeginUp(target) : _transitions.BeginDown(target)) {}
  ~TransitionLock() {
    if (_is_ours) _transitions.Unwind(_depth);
  }
  TransitionLock(const TransitionLock&) = delete;
  TransitionLock& operator=(const TransitionLock&) = delete;
  explicit operator bool() const { return _is_ours; }

 private:
  Transitions& _transitions;
  const int _depth;
  const bool _is_ours;
};

Service::Service()
    : _callbacks(std::make_shared<base::Callbacks>()),
      _transitions(std::make_unique<Transitions>(*this)) {
  SetFinisher(*_transitions);
  SetChanges(*_transitions);
}

Service::~Service() = default;

bool Service::StatusUp() {
  if (!CanStatusUp()) return false;
  const TransitionLock change(*this, true, Beside(*this, 1));
  return change && IStatus::StatusUp();
}

bool Service::StatusDown() {
  if (!CanStatusDown()) return false;
  const TransitionLock change(*this, false, Beside(*this, -1));
  return !change || IStatus::StatusDown();
}

bool Service::StatusUp(Status target) {
  if (!IsStatus(target)) return false;
  const TransitionLock change(*this, true, target);
  return change && IStatus::StatusUp(target);
}

bool Service::StatusDown(Status target) {
  if (!IsStatus(target) || target > LastStatus()) return false;
  const TransitionLock change(*this, false, target);
  return !change || (IStatus::StatusDown(target) && WaitForCallbacks(target));
}

// The direction is known once no other change runs.
bool Service::StatusChange(Status target) {
  if (!IsStatus(target)) return false;
  const bool up = target >= LastStatus();
  const TransitionLock change(*this, up, target);
  if (!change) return !up;
  return IStatus::StatusChange(target);
}

bool Service::beforeStatusUp(Status target) { return _transitions->BeginUp(target); }
bool Service::beforeStatusDown(Status target) { return _transitions->BeginDown(target); }

bool Service::Pause() {
  if (Failed(LastStatus() < Status::kPlay, "LastStatus()<kPlay", "nothing plays")) return false;
  const bool done = foreach ([](base::object& child) {
    auto* service = dynamic_cast<Service*>(&child);
    return service == nullptr || service->StatusUp(Status::kPause);
  });
  return done && IStatus::Pause();
}

bool Service::Resume() {
  const bool done = foreach ([](base::object& child) {
    auto* service = dynamic_cast<Service*>(&child);
    return service == nullptr || service->StatusDown(Status::kPlay);
  });
  return done && IStatus::Resume();
}

bool Service::Stop() {
  const bool done = WaitForCallbacks(Status::kReady);
  return IStatus::Stop() && done;
}

bool Service::Close() {
  const bool done = WaitForCallbacks(Status::kNull);
  return IStatus::Close() && done;
}

// A host thread may be the callback itself; a stream that still plays keeps its callbacks.
bool Service::WaitForCallbacks(Status target) {
  return IsHostThread() || target >= Status::kPlay ||
         !Failed(!_callbacks->WaitUntilNoneRuns(CommandTimeout()), "!callbacks",
                 "a callback has not returned within the time-out of a command");
}

const char* StatusName(IStatus::Status status) {
  const auto index = static_cast<std::size_t>(status);
  return index < std::size(kNames) ? kNames[index] : "?";
}

bool StatusFromName(const char* name, IStatus::Status& status) {
  for (int i = 0; name != nullptr && i < static_cast<int>(std::size(kNames)); ++i) {
    if (std::strcmp(name, kNames[i]) != 0) continue;
    status = static_cast<IStatus::Status>(i);
    return true;
  }
  return false;
}

}  // namespace quill::stream
