#include "ChainRunner.h"

#include <chrono>
#include <new>
#include <system_error>
#include <utility>

#include <pthread.h>

#include "Clock.h"

namespace tessel::rtos {

using link::StreamState;

ChainRunner::ChainRunner(Chain& chain, Report report)
    : _chain(chain),
      _report(std::move(report)),
      _no_memory(AboutElement(chain.stages.front().row->name, "out of memory")) {}

bool ChainRunner::Start(std::string& error) {
  if (_thread.joinable()) return true;
  _state = StreamState::kPlaying;
  _is_stopping = false;  // no thread is there to see it
  _chain.sink->Resume();
  try {
    _thread = std::thread([this] {
      pthread_setname_np(pthread_self(), "tessel-chain");
      try {
        Run();
      } catch (const std::bad_alloc&) {
        _state = StreamState::kFailed;
        _report(link::Event::Kind::kFailed, _no_memory);
      }
    });
  } catch (const std::system_error& failure) {
    _state = StreamState::kReady;
    error = std::string("no thread for the chain: ") + failure.what();
    return false;
  }
  return true;
}

void ChainRunner::Stop() {
  if (!_thread.joinable()) return;
  {
    const std::lock_guard lock(_mutex);
    _is_stopping = true;
    _stopped.notify_all();
  }
  _chain.sink->Interrupt();
  _thread.join();
  _state = StreamState::kReady;
}

bool ChainRunner::SleepUntil(std::int64_t due_ns) {
  const std::chrono::steady_clock::time_point due{std::chrono::nanoseconds(due_ns)};
  std::unique_lock lock(_mutex);
  return !_stopped.wait_until(lock, due, [this] { return _is_stopping.load(); });
}

void ChainRunner::Run() {
  for (const Chain::Stage& stage : _chain.stages) stage.element->Start();
  Unit unit;
  ReadControl(unit);
  while (!_is_stopping) {
    unit.is_key = false;
    unit.size_bytes = 0;
    unit.missed = 0;
    Verdict verdict = MoveOne(unit);
    if (verdict != Verdict::kFail && verdict != Verdict::kEnd) continue;
    if (verdict == Verdict::kEnd && !_is_stopping) verdict = Drain(unit);
    if (_is_stopping || verdict == Verdict::kFail) break;
    _state = StreamState::kEnded;
    _report(link::Event::Kind::kEnd, "end of input");
    break;
  }
  for (const Chain::Stage& stage : _chain.stages) stage.element->Stop();
}

// One unit from the source to the sink.
Verdict ChainRunner::MoveOne(Unit& unit) {
  const Chain::Stage& first = _chain.stages.front();
  Source& source = *_chain.source;
  Verdict verdict = Checked(first, source.Await(unit, *this));
  if (verdict != Verdict::kPass) return verdict;
  CountMissed(unit);
  // As late as possible: this unit serves requests made while it was awaited.
  ReadControl(unit);
  verdict = Admit(unit);
  if (verdict != Verdict::kPass) return Skip(unit, verdict);
  unit.room = _chain.sink->Reserve();
  if (unit.room.empty() && !source.IsLive() && !WaitForRoom(unit)) return Verdict::kEnd;
  if (unit.room.empty() && !source.IsContinuous()) {
    _chain.sink->CountDropped();
    return Checked(first, source.Skip(unit));
  }
  unit.sequence = unit.capture - _skipped;
  verdict = PassThrough(unit, 0);
  if (verdict == Verdict::kPass) _next_sequence = unit.sequence + 1;
  if (verdict == Verdict::kNeedMore) ++_skipped;
  return verdict;
}

Verdict ChainRunner::Admit(const Unit& unit) const {
  for (const Chain::Stage& stage : _chain.stages) {
    const Verdict verdict = stage.element->Admit(unit);
    if (verdict != Verdict::kPass) return verdict;
  }
  return Verdict::kPass;
}

// Captures that the source has missed count as they would have without a free slot. REQUIRES: the
// control is that of the unit before.
void ChainRunner::CountMissed(const Unit& unit) {
  Unit missed = unit;
  for (std::int64_t left = unit.missed; left > 0; --left) {
    missed.time_ns = unit.time_ns - left * kSecondNs / unit.frames_per_second;
    CountUnwanted(Admit(missed));
  }
}

// Counts a capture that becomes no unit, by what the elements have said about it.
void ChainRunner::CountUnwanted(Verdict verdict) {
  if (verdict == Verdict::kPass) {
    _chain.sink->CountDropped();
    return;
  }
  ++_skipped;
  _chain.sink->CountSkipped(verdict);
}

Verdict ChainRunner::Skip(Unit& unit, Verdict reason) {
  CountUnwanted(reason);
  // No trigger is pending, and no event announces the next one: a source that is not live would
  // spin. So it, too, waits for the next capture.
  if (reason == Verdict::kNotTriggered && !_chain.source->IsLive()) {
    SleepUntil(NowNs() + kSecondNs / unit.frames_per_second);
  }
  return Checked(_chain.stages.front(), _chain.source->Skip(unit));
}

// False when the chain is told to stop.
bool ChainRunner::WaitForRoom(Unit& unit) {
  while (unit.room.empty()) {
    if (!_chain.sink->WaitForRoom()) return false;
    unit.room = _chain.sink->Reserve();
  }
  ReadControl(unit);  // again: the wait may have been long
  return true;
}

// From the element at `first` on.
Verdict ChainRunner::PassThrough(Unit& unit, std::size_t first) {
  for (std::size_t i = first; i < _chain.stages.size(); ++i) {
    const Chain::Stage& stage = _chain.stages[i];
    const Verdict verdict = Checked(stage, stage.element->Process(unit));
    if (verdict != Verdict::kPass) return verdict;
  }
  return Verdict::kPass;
}

// The units that elements keep back belong to the input that has ended. kEnd when all are through.
Verdict ChainRunner::Drain(Unit& unit) {
  for (std::size_t i = 0; i < _chain.stages.size(); ++i) {
    while (!_is_stopping && _chain.stages[i].element->KeepsBack()) {
      const Verdict verdict = DrainElement(unit, i);
      if (verdict == Verdict::kFail) return verdict;
      if (verdict == Verdict::kEnd) break;
    }
  }
  return Verdict::kEnd;
}

// Moves one unit that the element at `index` has kept back. kEnd when it has no more.
Verdict ChainRunner::DrainElement(Unit& unit, std::size_t index) {
  const Chain::Stage& stage = _chain.stages[index];
  unit.room = _chain.sink->Reserve();
  if (unit.room.empty() && !_chain.source->IsLive() && !WaitForRoom(unit)) return Verdict::kEnd;
  const Verdict verdict = Checked(stage, stage.element->Drain(unit));
  if (verdict == Verdict::kFail) return verdict;
  if (verdict != Verdict::kPass) return Verdict::kEnd;
  unit.sequence = _next_sequence;
  const Verdict passed = PassThrough(unit, index + 1);
  if (passed == Verdict::kPass) ++_next_sequence;
  return passed == Verdict::kFail ? passed : Verdict::kPass;
}

// Reports a failure of the element.
Verdict ChainRunner::Checked(const Chain::Stage& stage, Verdict verdict) {
  if (verdict != Verdict::kFail) return verdict;
  _state = StreamState::kFailed;
  _report(link::Event::Kind::kFailed, AboutElement(stage.row->name, stage.element->LastError()));
  return verdict;
}

void ChainRunner::ReadControl(Unit& unit) const {
  if (_chain.block != nullptr) unit.control = ReadRateControl(*_chain.block);
}

}  // namespace tessel::rtos
