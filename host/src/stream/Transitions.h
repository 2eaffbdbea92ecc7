// Lets one thread at a time change the status of a service.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "quill/Service.h"

namespace quill::stream {

class Service::Transitions final : public base::object::Finisher, public IStatus::Changes {
 public:
  explicit Transitions(Service& service) : _service(service) {}

  // The rules are those of quill/Service.h. True: this thread's change runs, until End(). May nest.
  bool BeginUp(Status target);
  // False: left to the change under way.
  bool BeginDown(Status target);
  // The outermost End() carries out the changes that were left to it.
  void End() override;

  // How many changes of this thread are nested; 0 on other threads.
  int Depth();
  // Ends those that are nested deeper than `depth`.
  void Unwind(int depth);

  // Closes the service for good and waits for its callbacks.
  void Finish() override;

 private:
  bool MayGoUp(Status target) const;
  bool IsFree() const;
  bool WaitForTurn(std::unique_lock<std::mutex>& lock);
  void Enter(bool down);

  Service& _service;
  std::mutex _mutex;
  std::condition_variable _is_free;
  std::thread::id _mover;           // guarded by _mutex; the thread whose change runs
  int _depth = 0;                   // guarded by _mutex; nested changes of the mover, 0: none runs
  bool _goes_down = false;          // guarded by _mutex; the mover may be waiting for callbacks
  bool _is_finished = false;        // guarded by _mutex; nothing takes the service up any more
  std::optional<Status> _deferred;  // guarded by _mutex; the lowest target left to the mover
};

}  // namespace quill::stream
