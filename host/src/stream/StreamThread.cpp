#include "StreamThread.h"

#include <atomic>
#include <thread>
#include <utility>

#include "Callbacks.h"
#include "quill/Debug.h"
#include "Timeouts.h"

namespace quill::stream {

// Holds all that the thread needs, as a callback may stop or close the stream.
struct StreamThread::Run {
  Run(std::shared_ptr<Session> from, Receiver& to, std::shared_ptr<base::Callbacks> of_the_owner)
      : session(std::move(from)), receiver(to), callbacks(std::move(of_the_owner)) {}

  void Loop() {
    may_run.wait(false);
    while (!is_over.load(std::memory_order_acquire)) {
      Packet* packet = session->Pull(true);
      if (packet == nullptr) break;
      Deliver(*packet);
      packet->Release();  // a client that keeps it has added a hold
    }
    if (session->HasEnded() && !session->IsHalted() && !is_over.load()) receiver.OnDrained();
  }
  void Deliver(Packet& packet) {
    const std::lock_guard turn(callbacks->output_turn);
    if (is_over.load(std::memory_order_acquire)) return;
    CallClient([&] { return receiver.OnPacket(packet), true; });
  }
  void Begin() {
    may_run.store(true, std::memory_order_release);
    may_run.notify_all();
  }

  const std::shared_ptr<Session> session;
  Receiver& receiver;  // its owner is held by the thread
  const std::shared_ptr<base::Callbacks> callbacks;
  std::atomic<bool> may_run{false};
  std::atomic<bool> is_over{false};
  base::Callbacks itself;  // counts this one thread
};

bool StreamThread::Start(std::shared_ptr<Session> session, Receiver& receiver, Service& sink) {
  if (_run != nullptr) _run->is_over.store(true, std::memory_order_release);
  auto run = std::make_shared<Run>(std::move(session), receiver, base::OwnerCallbacks(sink));
  run->itself.Begin();
  auto guard = std::make_shared<base::CallbackGuard>(sink);
  std::thread thread = StartThread("tessel-stream", [run, guard]() mutable {
    run->Loop();
    run->itself.End();
    guard.reset();
  });
  guard.reset();
  if (!thread.joinable()) return false;
  thread.detach();  // Stop() waits for it by the count
  _run = std::move(run);
  return true;
}

void StreamThread::Begin() {
  if (_run != nullptr) _run->Begin();
}

bool StreamThread::Stop() {
  const std::shared_ptr<Run> run = std::exchange(_run, nullptr);
  if (run == nullptr) return true;
  run->is_over.store(true, std::memory_order_release);
  run->Begin();
  return IsHostThread() || !Failed(!run->itself.WaitUntilNoneRuns(CommandTimeout()), "!run->itself",
                                   "a callback has not returned within the time-out of a command");
}

}  // namespace quill::stream
