#include "quill/IStatus.h"

#include "RtosConnection.h"

namespace quill::stream {
namespace {

IStatus::Status Next(IStatus::Status status, int step) {
  return static_cast<IStatus::Status>(static_cast<int>(status) + step);
}

}  // namespace

bool IStatus::Open() { return Raise(Status::kReady); }
bool IStatus::Start() { return Raise(Status::kPlay); }
bool IStatus::Pause() { return Raise(Status::kPause); }
bool IStatus::Resume() { return Lower(Status::kPlay); }
bool IStatus::Stop() { return Lower(Status::kReady); }
bool IStatus::Close() { return Lower(Status::kNull); }
bool IStatus::StartToPause() { return Start() && Pause(); }
bool IStatus::StopFromPause() { return Stop(); }

bool IStatus::CanStatusUp() const { return LastStatus() < Status::kPause; }
bool IStatus::CanStatusDown() const { return LastStatus() > Status::kNull; }

bool IStatus::beforeStatusUp(Status) { return true; }
void IStatus::afterStatusUp(Status) {
  if (_changes != nullptr) _changes->End();
}
bool IStatus::beforeStatusDown(Status) { return true; }
void IStatus::afterStatusDown(Status target) { IStatus::afterStatusUp(target); }

IStatus::Status IStatus::CurrStatus() const { return IsLost() ? Status::kNull : LastStatus(); }

void IStatus::DependOn(std::uint64_t connection) {
  _connection.store(connection, std::memory_order_release);
}

bool IStatus::IsLost() const {
  return RtosConnection::IsLost(_connection.load(std::memory_order_acquire));
}

bool IStatus::Raise(Status at_least) {
  if (LastStatus() < at_least) _status.store(at_least, std::memory_order_release);
  return true;
}

bool IStatus::Lower(Status at_most) {
  if (LastStatus() > at_most) _status.store(at_most, std::memory_order_release);
  if (at_most == Status::kNull) DependOn(0);  // last: nobody sees a lost stream play
  return true;
}

// An override need not have called its base version, so each step records its target here as well.
bool IStatus::StatusUp() {
  if (!CanStatusUp()) return false;
  const Status target = Next(LastStatus(), 1);
  if (!beforeStatusUp(target)) return false;
  const bool done = target == Status::kReady ? Open() : target == Status::kPlay ? Start() : Pause();
  if (done) Raise(target);
  afterStatusUp(target);
  return done;
}

bool IStatus::StatusDown() {
  if (!CanStatusDown()) return false;
  const Status target = Next(LastStatus(), -1);
  if (!beforeStatusDown(target)) return false;
  const bool done = target == Status::kNull    ? Close()
                    : target == Status::kReady ? Stop()
                                               : Resume();
  if (done) Lower(target);
  afterStatusDown(target);
  return done;
}

bool IStatus::StatusUp(Status target) {
  if (target < LastStatus()) return false;
  // Straight to pause is one transition for the hooks.
  if (LastStatus() == Status::kReady && target == Status::kPause) {
    if (!beforeStatusUp(target)) return false;
    const bool done = StartToPause();
    if (done) Raise(target);
    afterStatusUp(target);
    return done;
  }
  while (LastStatus() < target) {
    if (!StatusUp()) return false;
  }
  return true;
}

bool IStatus::StatusDown(Status target) {
  if (target > LastStatus()) return false;
  if (LastStatus() == Status::kPause && target <= Status::kReady) {
    if (!beforeStatusDown(Status::kReady)) return false;
    const bool done = StopFromPause();
    if (done) Lower(Status::kReady);
    afterStatusDown(Status::kReady);
    if (!done) return false;
  }
  while (LastStatus() > target) {
    if (!StatusDown()) return false;
  }
  return true;
}

bool IStatus::StatusChange(Status target) {
  return target >= LastStatus() ? StatusUp(target) : StatusDown(target);
}

}  // namespace quill::stream
