#include "quill/Service.h"

#include <cstring>

#include "quill/Debug.h"

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
  // Straight to pause is one transition, so that no frame moves between two.
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

bool Service::beforeStatusUp(Status target) {
  return !Failed(!Enable(), "!Enable()", Name(), " does not go up to ", StatusName(target));
}

bool Service::beforeStatusDown(Status) { return true; }

void Service::LastReleased() {
  if (CanStatusDown()) StatusDown(Status::kNull);
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
