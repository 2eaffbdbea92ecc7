#include "quill/Service.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "quill/Debug.h"
#include "Threads.h"

namespace quill::stream {
namespace {

constexpr const char* kNames[] = {"null", "ready", "play", "pause"};

IStatus::Status Next(IStatus::Status status, int step) {
  return static_cast<IStatus::Status>(static_cast<int>(status) + step);
}

}  // namespace

bool IStatus::Raise(Status at_least) {
  if (_status.load(std::memory_order_relaxed) < at_least) {
    _status.store(at_least, std::memory_order_release);
  }
  return true;
}

bool IStatus::Lower(Status at_most) {
  if (_status.load(std::memory_order_relaxed) > at_most) {
    _status.store(at_most, std::memory_order_release);
  }
  return true;
}

bool IStatus::StatusUp() {
  if (!CanStatusUp()) return false;
  const Status target = Next(CurrStatus(), 1);
  if (!beforeStatusUp(target)) return false;
  const bool done = target == Status::kReady ? Open() : target == Status::kPlay ? Start() : Pause();
  if (!done) return false;
  Raise(target);  // an override need not have called its base version
  afterStatusUp(target);
  return true;
}

bool IStatus::StatusDown() {
  if (!CanStatusDown()) return false;
  const Status target = Next(CurrStatus(), -1);
  if (!beforeStatusDown(target)) return false;
  const bool done = target == Status::kNull    ? Close()
                    : target == Status::kReady ? Stop()
                                               : Resume();
  if (!done) return false;
  Lower(target);
  afterStatusDown(target);
  return true;
}

bool IStatus::StatusUp(Status target) {
  if (target < CurrStatus()) return false;
  // Straight to pause is one transition for the hooks.
  if (CurrStatus() == Status::kReady && target == Status::kPause) {
    if (!beforeStatusUp(target) || !StartToPause()) return false;
    Raise(target);
    afterStatusUp(target);
    return true;
  }
  while (CurrStatus() < target) {
    if (!StatusUp()) return false;
  }
  return true;
}

bool IStatus::StatusDown(Status target) {
  if (target > CurrStatus()) return false;
  if (CurrStatus() == Status::kPause && target <= Status::kReady) {
    if (!beforeStatusDown(Status::kReady) || !StopFromPause()) return false;
    Lower(Status::kReady);
    afterStatusDown(Status::kReady);
  }
  while (CurrStatus() > target) {
    if (!StatusDown()) return false;
  }
  return true;
}

bool IStatus::StatusChange(Status target) {
  return target >= CurrStatus() ? StatusUp(target) : StatusDown(target);
}

struct Service::Traffic {
  std::mutex mutex;
  std::condition_variable is_free;
  std::thread::id mover;            // guarded by mutex; none while nobody moves
  int depth = 0;                    // guarded by mutex; nested turns of the mover
  bool is_going_down = false;       // guarded by mutex
  bool is_ending = false;           // guarded by mutex; nobody takes it up any more
  Status going_to = Status::kNull;  // guarded by mutex
};

Service::Turn::Turn(Service& service, Status target) : _service(service) {
  // Longer than any command takes: a host thread waits for one that goes up, but not for ever.
  constexpr std::chrono::seconds kPatience(3);
  Traffic& traffic = *service._traffic;
  const std::thread::id self = std::this_thread::get_id();
  const bool is_down = target <= service.CurrStatus();
  const auto is_free = [&] { return traffic.depth == 0 || traffic.mover == self; };
  std::unique_lock lock(traffic.mutex);
  if (!IsHostThread()) {
    traffic.is_free.wait(lock, is_free);
  } else {
    traffic.is_free.wait_for(lock, kPatience, [&] { return is_free() || traffic.is_going_down; });
  }
  if (!is_free()) {
    _is_done_by_other = traffic.is_going_down && traffic.going_to <= target;
    return;
  }
  if (traffic.is_ending && !is_down) return;
  _is_ours = true;
  if (traffic.depth++ > 0) return;
  traffic.mover = self;
  traffic.is_going_down = is_down;
  traffic.going_to = target;
}

Service::Turn::~Turn() {
  if (!_is_ours) return;
  Traffic& traffic = *_service._traffic;
  const std::lock_guard lock(traffic.mutex);
  if (--traffic.depth > 0) return;
  traffic.is_going_down = false;
  traffic.is_free.notify_all();
}

Service::Service()
    : _traffic(std::make_unique<Traffic>()), _callbacks(std::make_shared<Callbacks>()) {}

Service::~Service() = default;

bool Service::beforeStatusUp(Status target) {
  return !Failed(!Enable(), "!Enable()", Name(), " does not go up to ", StatusName(target));
}

bool Service::StatusUp() {
  if (!CanStatusUp()) return false;
  const Turn turn(*this, Next(CurrStatus(), 1));
  return turn && IStatus::StatusUp();
}

bool Service::StatusDown() {
  if (!CanStatusDown()) return false;
  const Turn turn(*this, Next(CurrStatus(), -1));
  return turn ? IStatus::StatusDown() : turn.IsDoneByOther();
}

bool Service::Pause() {
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

// A callback that stopped its own stream may still be on its way out.
bool Service::Stop() {
  if (!IsHostThread()) _callbacks->WaitUntilNoneRuns();
  return IStatus::Stop();
}

bool Service::Close() {
  if (!IsHostThread()) _callbacks->WaitUntilNoneRuns();
  return IStatus::Close();
}

void Service::LastReleased() {
  {
    const Turn turn(*this, Status::kNull);
    {
      const std::lock_guard lock(_traffic->mutex);
      _traffic->is_ending = true;  // a callback that still runs may be about to open it again
    }
    if (CanStatusDown()) StatusDown(Status::kNull);
  }
  if (!IsHostThread()) _callbacks->WaitUntilNoneRuns();
  Object::LastReleased();
}

const char* StatusName(IStatus::Status status) {
  const auto index = static_cast<std::size_t>(status);
  return index < 4 ? kNames[index] : "?";
}

bool StatusFromName(const char* name, IStatus::Status& status) {
  for (int i = 0; i < 4; ++i) {
    if (std::strcmp(name, kNames[i]) != 0) continue;
    status = static_cast<IStatus::Status>(i);
    return true;
  }
  return false;
}

}  // namespace quill::stream
