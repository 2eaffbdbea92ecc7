#include "StreamThread.h"

#include <atomic>
#include <thread>
#include <utility>

namespace quill::stream {

// It holds all it needs, as a callback may stop or close the stream under its feet.
struct StreamThread::Run {
  Run(std::shared_ptr<Session> from, std::function<void(Packet&)> to,
      std::function<void()> at_the_end, std::shared_ptr<Service::Callbacks> counted)
      : session(std::move(from)),
        output(std::move(to)),
        drained(std::move(at_the_end)),
        callbacks(std::move(counted)) {}

  void Loop() {
    may_run.wait(false);
    while (!is_over.load(std::memory_order_acquire)) {
      Packet* packet = session->Pull(true);
      if (packet == nullptr) break;
      output(*packet);
      packet->Release();  // whoever keeps it has added a hold
    }
    if (session->HasEnded() && !session->IsHalted()) drained();
  }
  void Release() {
    may_run.store(true, std::memory_order_release);
    may_run.notify_all();
  }

  const std::shared_ptr<Session> session;
  const std::function<void(Packet&)> output;
  const std::function<void()> drained;
  const std::shared_ptr<Service::Callbacks> callbacks;
  std::atomic<bool> may_run{false};
  std::atomic<bool> is_over{false};
  std::thread thread;
};

StreamThread::~StreamThread() {
  if (_run != nullptr) _run->thread.detach();
}

bool StreamThread::Start(std::shared_ptr<Session> session, std::function<void(Packet&)> output,
                         std::function<void()> drained,
                         std::shared_ptr<Service::Callbacks> callbacks) {
  if (_run != nullptr) _run->thread.detach();  // the callback that it runs starts it anew
  auto run = std::make_shared<Run>(std::move(session), std::move(output), std::move(drained),
                                   std::move(callbacks));
  run->callbacks->Begin();
  run->thread = StartThread("tessel-stream", [run] {
    run->Loop();
    run->callbacks->End();
  });
  if (!run->thread.joinable()) {
    run->callbacks->End();
    return false;
  }
  _run = std::move(run);
  return true;
}

void StreamThread::Release() {
  if (_run != nullptr) _run->Release();
}

void StreamThread::Join() {
  if (_run == nullptr) return;
  _run->is_over.store(true, std::memory_order_release);
  _run->Release();
  if (_run->thread.get_id() == std::this_thread::get_id()) return;
  if (IsForkedChild()) {
    _run->thread.detach();  // it stayed with the parent
  } else {
    _run->thread.join();
  }
  _run.reset();
}

}  // namespace quill::stream
