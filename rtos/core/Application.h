// One application on the real-time side: a chain of elements built from its description, and the
// thread that moves units through it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Element.h"
#include "messages/Applications.h"
#include "messages/Streams.h"
#include "SharedWindow.h"
#include "UniqueFd.h"

namespace tessel::rtos {

// What the Linux side has handed out to one application, checked against the window.
struct Grants {
  struct Session {
    std::span<std::byte> area;
    UniqueFd frame_doorbell;
    UniqueFd slot_doorbell;
  };
  std::map<std::uint64_t, std::uint64_t> blocks;  // offset in the window -> bytes
  std::map<std::string, Session> sessions;
};

// Command thread, one at a time.
class Application : private Context, private StopSignal {
 public:
  // Tells the Linux side something unasked. Does not throw. Chain thread.
  using Report = std::function<void(link::Event::Kind kind, const std::string& text)>;

  // Builds the chain that `layout` ("type=pipeline,layout={…}") asks for, at "ready". Null, with
  // `error` naming element and value, when it cannot be had. `window` and `elements` have to
  // outlive it; `linux_base` is the window's address over there.
  static std::unique_ptr<Application> Create(const std::string& layout,
                                             std::span<const ElementRow> elements,
                                             const link::SharedWindow& window,
                                             std::uint64_t linux_base, Grants grants, Board board,
                                             Report report, std::string& error);
  ~Application() override;

  // When it returns from going down to "ready", no unit moves any more.
  bool SetStatus(link::Status status, std::string& error);
  // What the chain delivers.
  const AttrSet& Description() const { return _media.description; }

  // What it is and how it goes; its client is not known here. Any thread.
  link::StreamReport Overview() const;
  // Steering by others than its client: stores a word of the rate-control block, or counts a
  // request up. False with `error` when this chain has no use for it. Any thread.
  bool SetWord(const std::string& word, int value, std::string& error);
  bool CountRequest(const std::string& word, std::string& error);

 private:
  using State = link::StreamState;

  struct Link {
    std::string class_name;
    std::unique_ptr<Element> element;
  };

  Application(const link::SharedWindow& window, std::uint64_t linux_base, Grants grants,
              Board board, Report report);
  bool TakeBlock(const char* address, std::string& error);
  VbrcBlock::Word* Word(const std::string& name, bool is_request, std::string& error);
  bool Build(const std::string& layout, std::span<const ElementRow> elements, std::string& error);

  // Context
  const Board& GetBoard() const override { return _board; }
  VbrcBlock* Block(const char* text, std::string& error) const override;
  std::unique_ptr<link::SessionProducer> Session(const char* name,
                                                 std::string& error) const override;
  int FramesPerSecond() const override { return _frames_per_second; }
  const ElementRow* Encoder() const override { return _encoder; }
  // StopSignal
  bool SleepUntil(std::int64_t due_ns) override;

  void Run();
  Verdict MoveOne(Unit& unit);
  Verdict Admit(const Unit& unit) const;
  void CountMissed(const Unit& unit);
  Verdict Skip(Unit& unit, Verdict reason);
  bool WaitForRoom(Unit& unit);
  Verdict PassThrough(Unit& unit, std::size_t first);
  Verdict Drain(Unit& unit);
  Verdict Told(const Link& link, Verdict verdict);
  void ReadControl(Unit& unit) const;
  void StopThread();
  bool Reads(ControlWord word) const;

  const link::SharedWindow& _window;
  const std::uint64_t _linux_base;
  mutable Grants _grants;  // a session is taken out by the element that asks for it
  const Board _board;
  const Report _report;

  // Constant after Build.
  std::vector<Link> _chain;
  Source* _source = nullptr;    // the first of _chain
  Sink* _sink = nullptr;        // the last of _chain
  VbrcBlock* _block = nullptr;  // null: no element is steered
  std::vector<ControlWord> _read_words;
  std::string _session_name;
  std::string _no_memory;  // what is said then: made before it could be short
  Media _media;
  int _frames_per_second = 30;
  const ElementRow* _encoder = nullptr;
  std::uint32_t _skipped = 0;        // captures without a unit of their own; chain's thread
  std::uint32_t _next_sequence = 0;  // behind the last unit; chain's thread

  std::thread _thread;
  std::mutex _mutex;
  std::condition_variable _stopped;
  std::atomic<State> _state{State::kReady};
  std::atomic<bool> _is_stopping{false};  // written under _mutex, for whoever sleeps on _stopped
};

}  // namespace tessel::rtos
