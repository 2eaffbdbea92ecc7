// Moves units through a chain, on a thread of its own.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "Chain.h"
#include "messages/Applications.h"
#include "messages/Streams.h"

namespace tessel::rtos {

// Connection thread, but for State().
class ChainRunner : private StopSignal {
 public:
  // Called once when the chain ends by itself. Must not throw. Chain thread.
  using Report = std::function<void(link::Event::Kind kind, const std::string& text)>;

  // `chain` is open and has to outlive this.
  ChainRunner(Chain& chain, Report report);
  ~ChainRunner() override { Stop(); }

  // False with `error` when no thread can be had. Does nothing while it runs.
  bool Start(std::string& error);
  // When it returns no unit moves any more.
  void Stop();
  link::StreamState State() const { return _state; }  // any thread

 private:
  // StopSignal
  bool SleepUntil(std::int64_t due_ns) override;

  void Run();
  Verdict MoveOne(Unit& unit);
  Verdict Admit(const Unit& unit) const;
  void CountMissed(const Unit& unit);
  void CountUnwanted(Verdict verdict);
  Verdict Skip(Unit& unit, Verdict reason);
  bool WaitForRoom(Unit& unit);
  Verdict PassThrough(Unit& unit, std::size_t first);
  Verdict Drain(Unit& unit);
  Verdict DrainElement(Unit& unit, std::size_t index);
  Verdict Checked(const Chain::Stage& stage, Verdict verdict);
  void ReadControl(Unit& unit) const;

  Chain& _chain;
  const Report _report;
  // Made beforehand: there may be no memory for it when it is needed.
  const std::string _no_memory;

  // Chain thread.
  std::uint32_t _skipped = 0;        // captures that became no unit, on purpose
  std::uint32_t _next_sequence = 0;  // of the unit after the last one

  std::thread _thread;
  std::mutex _mutex;
  std::condition_variable _stopped;
  std::atomic<link::StreamState> _state{link::StreamState::kReady};
  std::atomic<bool> _is_stopping{false};  // written under _mutex, for sleepers on _stopped
};

}  // namespace tessel::rtos
