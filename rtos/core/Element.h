// The contract of elements. A chain runs on one thread, the chain thread, and moves one unit at a
// time from the source to the sink:
//
//   source.Await ─> each Admit ─> sink.Reserve ─> source.Process ─> … ─> sink.Process
//
// Before a picture is made, the elements say whether the capture is wanted, and a slot for the
// result is reserved. So a stream that has to drop something drops whole captures, and never a
// picture that later ones refer to. The element that makes the final bytes writes them into that
// slot.
//
// Sound is one signal cut into blocks, and elements keep some of it from block to block. So every
// block goes through the whole chain, also without a slot; then the result is dropped.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "messages/Applications.h"
#include "quill/VbrcBlock.h"
#include "SessionLayout.h"
#include "Unit.h"

namespace tessel::link {
class SessionProducer;
}

namespace tessel::rtos {

class AudioDevice;  // of the board
class QpPolicy;     // of rate control
struct ElementRow;

using quill::stream::VbrcBlock;

// What a client sets for a chain beside its layout.
struct ChainSettings : link::BoardInputs {
  const AudioDevice* microphone = nullptr;  // null: the board has none
  // Whether picture and sound come from one file; then they keep their distance in time.
  bool IsFilm() const { return sensor == mic; }
};

// What an element can ask for while its chain is built. Connection thread.
class Context {
 public:
  virtual ~Context() = default;
  virtual const ChainSettings& Settings() const = 0;
  // The rate-control block whose Linux address is `text`. Null, with `error` set, when that lies in
  // no block granted to this chain.
  virtual VbrcBlock* Block(const char* text, std::string& error) const = 0;
  // The producer's end of the session `name`; each can be taken once. Null, with `error` set, when
  // Linux has granted no such session.
  virtual std::unique_ptr<link::SessionProducer> Session(const char* name,
                                                         std::string& error) const = 0;
  // The rate asked of this chain in frames/s: the encoder's "fr", or 30.
  virtual int FramesPerSecond() const = 0;
  // The row of the element that makes the final bytes out of pictures or sound. Null: the source
  // writes its picture, or the last element before the sink its sound, into the slot itself.
  virtual const ElementRow* Encoder() const = 0;
};

enum class Verdict {
  kPass,          // on to the next element
  kNotTriggered,  // skipped: nothing has asked for it
  kRateLimited,   // skipped: it would exceed the frame rate
  kNeedMore,      // no result yet: the element needs the next ones first
  kEnd,           // the input has ended
  kFail,          // the chain cannot go on; LastError() says why
};

// Built, opened and destroyed on the connection thread; in between, called on the chain thread
// only.
class Element {
 public:
  virtual ~Element() = default;

  // Checks the parameters and prepares everything: `media` describes what the element in front
  // delivers, and is changed to what this one delivers. False with `error` naming parameter and
  // value ("qp=99 outside 0..51"); the caller adds the element's name.
  [[nodiscard]] virtual bool Open(const Context& context, const AttrSet& params, Media& media,
                                  std::string& error) = 0;
  // Whether the capture just announced is wanted: kPass, kNotTriggered or kRateLimited. It has no
  // picture yet, and may still be dropped where there is no slot; only Process() may count it.
  virtual Verdict Admit(const Unit&) { return Verdict::kPass; }
  // The chain begins, or begins again, to move units.
  virtual void Start() {}
  // Does its part of the unit.
  virtual Verdict Process(Unit& unit) = 0;
  virtual void Stop() {}
  // Whether Drain() has units to give.
  virtual bool KeepsBack() const { return false; }
  // The input has ended: gives one of the units kept back, kEnd when there are no more. REQUIRES:
  // KeepsBack().
  virtual Verdict Drain(Unit&) { return Verdict::kEnd; }

  // What the elements in front are steered by; null for most elements. Once open.
  virtual QpPolicy* Policy() { return nullptr; }
  // A later element has a policy to follow. Borrows it for the chain's life.
  virtual void Follow(QpPolicy&) {}

  const std::string& LastError() const { return _last_error; }

 protected:
  Verdict FailWith(std::string reason) {
    _last_error = std::move(reason);
    return Verdict::kFail;
  }

 private:
  std::string _last_error;
};

// Tells a waiting source that its chain stops.
class StopSignal {
 public:
  virtual ~StopSignal() = default;
  // Sleeps until `due_ns` (CLOCK_MONOTONIC); false when the chain is told to stop.
  virtual bool SleepUntil(std::int64_t due_ns) = 0;
};

// The first element of a chain. Process() makes the picture, or the block of sound, of the moment
// that Await() announced.
class Source : public Element {
 public:
  // Waits until the next unit is due and fills in `capture`, `time_ns`, `frames_per_second` and,
  // where captures came too late, `missed`. kEnd when the chain is told to stop or the input is
  // over. `unit.control.framerate_max`, where above 0, is the rate to hold.
  virtual Verdict Await(Unit& unit, StopSignal& stop) = 0;
  // Skips the unit that Await() announced.
  virtual Verdict Skip(Unit& unit) = 0;
  // Live sources drop when there is no slot; the others wait for one.
  virtual bool IsLive() const = 0;
  // Whether its units are pieces of one signal, as those of sound are.
  virtual bool IsContinuous() const { return false; }
};

// The last element of a chain: it owns the slots. Process() hands over the unit in the reserved
// one, or counts it as dropped where it has none.
class Sink : public Element {
 public:
  // A free slot, whole; empty when all are in use. Until Process() the same slot is returned again.
  virtual std::span<std::uint8_t> Reserve() = 0;
  // Sleeps until a slot is free. False when Interrupt() was called since the last Resume().
  virtual bool WaitForRoom() = 0;
  virtual void CountDropped() = 0;
  // `reason` is kNotTriggered or kRateLimited.
  virtual void CountSkipped(Verdict reason) = 0;
  virtual link::SessionCounters Counters() const = 0;  // any thread
  virtual void Interrupt() = 0;                        // any thread: ends WaitForRoom()
  virtual void Resume() = 0;                           // connection thread
};

// A word of the rate-control block.
using ControlWord = VbrcBlock::Word VbrcBlock::*;

// A row of the table of elements.
struct ElementRow {
  const char* name;  // in layout strings; unique
  std::unique_ptr<Element> (*make)();
  bool is_encoder = false;  // makes the final bytes out of pictures or sound
  // The colours of the pictures that it encodes; none: it encodes no pictures.
  std::optional<Colours> encodes = std::nullopt;
  // The control words that only chains with such an element take.
  std::span<const ControlWord> reads = {};
};

// A `make` of an ElementRow.
template <typename Class>
std::unique_ptr<Element> MakeElement() {
  return std::make_unique<Class>();
}

}  // namespace tessel::rtos
