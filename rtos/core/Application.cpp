#include "Application.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <system_error>

#include <pthread.h>

#include "Clock.h"
#include "quill/ostream_string.h"
#include "SessionProducer.h"

namespace tessel::rtos {
namespace {

using quill::base::LayoutElement;

// The chain inside a pipeline.
bool ReadChain(const std::string& text, std::vector<LayoutElement>& chain, std::string& error) {
  AttrSet pipeline;
  if (!pipeline.Parse(text.c_str())) {
    error = pipeline.Error();
    return false;
  }
  const char* type = pipeline.Get("type");
  const char* layout = pipeline.Get("layout");
  if (type == nullptr || std::string(type) != "pipeline" || layout == nullptr) {
    error = "an application that holds no pipeline";
    return false;
  }
  return quill::base::ParseLayout(layout, chain, error);
}

std::string OfElement(const std::string& class_name, const std::string& reason) {
  return std::string("element \"").append(class_name).append("\": ").append(reason);
}

const ElementRow* FindRow(std::span<const ElementRow> elements, const std::string& name) {
  for (const ElementRow& row : elements) {
    if (name == row.name) return &row;
  }
  return nullptr;
}

enum class Use { kSetting, kRequest, kReport };

// A word of the rate-control block, under the name that watchers know it by.
struct WordRow {
  const char* name;
  ControlWord word;
  Use use;
  // What is said where no element of the chain reads it; null: any chain with a block takes it.
  const char* no_reader = nullptr;
};
constexpr char kNoRate[] = "the bit rate of the stream is not controlled";
constexpr char kNoRange[] = "the quantiser of the stream has no range";
constexpr WordRow kWords[] = {
    {"bitrate", &VbrcBlock::bitrate, Use::kReport},
    {"bitrate_target", &VbrcBlock::bitrate_target, Use::kSetting, kNoRate},
    {"bitrate_min", &VbrcBlock::bitrate_min, Use::kSetting, kNoRate},
    {"bitrate_max", &VbrcBlock::bitrate_max, Use::kSetting, kNoRate},
    {"framerate", &VbrcBlock::framerate, Use::kSetting},
    {"framerate_min", &VbrcBlock::framerate_min, Use::kSetting},
    {"framerate_max", &VbrcBlock::framerate_max, Use::kSetting},
    {"qp", &VbrcBlock::qp, Use::kSetting},
    {"qp_min", &VbrcBlock::qp_min, Use::kSetting, kNoRange},
    {"qp_max", &VbrcBlock::qp_max, Use::kSetting, kNoRange},
    {"qp_reported", &VbrcBlock::qp_reported, Use::kReport},
    {"keyframe_req", &VbrcBlock::keyframe_req, Use::kRequest,
     "the stream has no key frames to ask for"},
    {"trigger_req", &VbrcBlock::trigger_req, Use::kRequest,
     "the stream is not one of single frames"},
    {"frame_count", &VbrcBlock::frame_count, Use::kReport},
};

const WordRow* FindWord(const std::string& name) {
  for (const WordRow& row : kWords) {
    if (name == row.name) return &row;
  }
  return nullptr;
}

}  // namespace

std::unique_ptr<Application> Application::Create(const std::string& layout,
                                                 std::span<const ElementRow> elements,
                                                 const link::SharedWindow& window,
                                                 std::uint64_t linux_base, Grants grants,
                                                 Board board, Report report, std::string& error) {
  std::unique_ptr<Application> application(
      new Application(window, linux_base, std::move(grants), std::move(board), std::move(report)));
  if (!application->Build(layout, elements, error)) return nullptr;
  return application;
}

Application::Application(const link::SharedWindow& window, std::uint64_t linux_base, Grants grants,
                         Board board, Report report)
    : _window(window),
      _linux_base(linux_base),
      _grants(std::move(grants)),
      _board(std::move(board)),
      _report(std::move(report)) {}

Application::~Application() { StopThread(); }

bool Application::Build(const std::string& layout, std::span<const ElementRow> elements,
                        std::string& error) {
  std::vector<LayoutElement> chain;
  if (!ReadChain(layout, chain, error)) return false;
  for (const LayoutElement& wanted : chain) {
    const ElementRow* row = FindRow(elements, wanted.class_name);
    if (row == nullptr) {
      error = "no element \"" + wanted.class_name + "\"";
      return false;
    }
    _chain.push_back({wanted.class_name, row->make()});
    _read_words.insert(_read_words.end(), row->reads.begin(), row->reads.end());
    if (row->is_encoder) {
      _encoder = row;
      // The rate asked of the encoder is the rate at which the source captures.
      wanted.params.Get("fr", _frames_per_second);
    }
    wanted.params.Get("session_name", _session_name);
    if (!TakeBlock(wanted.params.Get("vbrc"), error)) {
      error = OfElement(wanted.class_name, error);
      return false;
    }
  }
  _no_memory = OfElement(_chain.front().class_name, "out of memory");
  _source = dynamic_cast<Source*>(_chain.front().element.get());
  _sink = dynamic_cast<Sink*>(_chain.back().element.get());
  if (_source == nullptr || _sink == nullptr) {
    error = "a chain that does not begin with a source and end with a sink";
    return false;
  }
  for (std::size_t i = 0; i < _chain.size(); ++i) {
    if (!_chain[i].element->Open(*this, chain[i].params, _media, error)) {
      error = OfElement(_chain[i].class_name, error);
      return false;
    }
    QpPolicy* policy = _chain[i].element->Policy();
    for (std::size_t j = 0; policy != nullptr && j < i; ++j) _chain[j].element->Follow(*policy);
  }
  return true;
}

// All elements of a chain are steered by one block.
bool Application::TakeBlock(const char* address, std::string& error) {
  if (address == nullptr) return true;
  VbrcBlock* block = Block(address, error);
  if (block == nullptr) return false;
  if (_block != nullptr && _block != block) {
    error = std::string("vbrc=") + address + " is not the block of the elements in front";
    return false;
  }
  _block = block;
  return true;
}

VbrcBlock* Application::Block(const char* text, std::string& error) const {
  // An address below the base wraps and lies in no block.
  const std::uint64_t offset = quill::base::ReadHandle(text) - _linux_base;
  auto place = _grants.blocks.upper_bound(offset);
  if (place != _grants.blocks.begin()) {
    const auto [begin, size_bytes] = *--place;
    const std::uint64_t inside = offset - begin;
    const bool fits = inside <= size_bytes && sizeof(VbrcBlock) <= size_bytes - inside;
    const auto memory = _window.Area(offset, sizeof(VbrcBlock));
    if (fits && inside % alignof(VbrcBlock) == 0 && !memory.empty()) {
      return reinterpret_cast<VbrcBlock*>(memory.data());
    }
  }
  error = std::string("vbrc=") + text + " lies in no block handed out";
  return nullptr;
}

std::unique_ptr<link::SessionProducer> Application::Session(const char* name,
                                                            std::string& error) const {
  auto grant = _grants.sessions.extract(name);
  if (!grant.empty()) {
    Grants::Session& session = grant.mapped();
    auto producer = link::SessionProducer::Create(session.area,
                                                  link::Doorbell(std::move(session.frame_doorbell)),
                                                  link::Doorbell(std::move(session.slot_doorbell)));
    if (producer != nullptr) return producer;
  }
  error = std::string("session_name=") + name + " is no session handed out";
  return nullptr;
}

bool Application::SleepUntil(std::int64_t due_ns) {
  const std::chrono::steady_clock::time_point due{std::chrono::nanoseconds(due_ns)};
  std::unique_lock lock(_mutex);
  return !_stopped.wait_until(lock, due, [this] { return _is_stopping.load(); });
}

bool Application::SetStatus(link::Status status, std::string& error) {
  if (status == link::Status::kReady) {
    StopThread();
    return true;
  }
  if (_thread.joinable()) return true;
  _state = State::kPlaying;
  _is_stopping = false;  // no thread is there to see it
  _sink->Resume();
  try {
    _thread = std::thread([this] {
      pthread_setname_np(pthread_self(), "tessel-chain");
      try {
        Run();
      } catch (const std::bad_alloc&) {
        _state = State::kFailed;
        _report(link::Event::Kind::kFailed, _no_memory);
      }
    });
  } catch (const std::system_error& failure) {
    _state = State::kReady;
    error = std::string("no thread for the chain: ") + failure.what();
    return false;
  }
  return true;
}

void Application::StopThread() {
  if (!_thread.joinable()) return;
  {
    const std::lock_guard lock(_mutex);
    _is_stopping = true;
    _stopped.notify_all();
  }
  _sink->Interrupt();
  _thread.join();
  _state = State::kReady;
}

bool Application::Reads(ControlWord word) const {
  return std::find(_read_words.begin(), _read_words.end(), word) != _read_words.end();
}

link::StreamReport Application::Overview() const {
  link::StreamReport report;
  static_cast<link::SessionCounters&>(report) = _sink->Counters();
  for (const Link& link : _chain)
    report.chain += (report.chain.empty() ? "" : "+") + link.class_name;
  report.session = _session_name;
  report.state = _state;
  report.media = _media.description;
  report.media.Remove("header");  // only a decoder wants to see it
  if (_block == nullptr) return report;
  report.control.emplace();
  for (const WordRow& row : kWords) {
    report.control->emplace_back(row.name, (_block->*row.word).load(std::memory_order_relaxed));
  }
  return report;
}

VbrcBlock::Word* Application::Word(const std::string& name, bool is_request, std::string& error) {
  const WordRow* row = FindWord(name);
  if (row == nullptr || row->use != (is_request ? Use::kRequest : Use::kSetting)) {
    error = "\"" + name + "\" is nothing that can be " + (is_request ? "requested" : "set");
    return nullptr;
  }
  if (_block == nullptr || (row->no_reader != nullptr && !Reads(row->word))) {
    error = row->no_reader == nullptr ? "the stream has no rate control" : row->no_reader;
    return nullptr;
  }
  return &(_block->*row->word);
}

bool Application::SetWord(const std::string& name, int value, std::string& error) {
  VbrcBlock::Word* word = Word(name, false, error);
  if (word != nullptr) word->store(value, std::memory_order_relaxed);
  return word != nullptr;
}

bool Application::CountRequest(const std::string& name, std::string& error) {
  VbrcBlock::Word* word = Word(name, true, error);
  if (word != nullptr) word->fetch_add(1, std::memory_order_relaxed);
  return word != nullptr;
}

void Application::ReadControl(Unit& unit) const {
  if (_block != nullptr) unit.control = ReadRateControl(*_block);
}

Verdict Application::Admit(const Unit& unit) const {
  for (const Link& link : _chain) {
    const Verdict verdict = link.element->Admit(unit);
    if (verdict != Verdict::kPass) return verdict;
  }
  return Verdict::kPass;
}

Verdict Application::Skip(Unit& unit, Verdict reason) {
  ++_skipped;
  _sink->CountSkipped(reason);
  // Nothing asks for pictures, and nothing tells when that changes: even a source that need not
  // keep to the clock waits for its next capture then.
  if (reason == Verdict::kNotTriggered && !_source->IsLive()) {
    SleepUntil(NowNs() + kSecondNs / unit.frames_per_second);
  }
  return Told(_chain.front(), _source->Skip(unit));
}

// Captures that the source has given up count as they would have without a free slot. REQUIRES: the
// control is that of the unit before.
void Application::CountMissed(const Unit& unit) {
  Unit missed = unit;
  for (std::int64_t left = unit.missed; left > 0; --left) {
    missed.time_ns = unit.time_ns - left * kSecondNs / unit.frames_per_second;
    const Verdict verdict = Admit(missed);
    if (verdict == Verdict::kPass) {
      _sink->CountDropped();
    } else {
      ++_skipped;
      _sink->CountSkipped(verdict);
    }
  }
}

// False when the chain is told to stop.
bool Application::WaitForRoom(Unit& unit) {
  while (unit.room.empty()) {
    if (!_sink->WaitForRoom()) return false;
    unit.room = _sink->Reserve();
  }
  ReadControl(unit);  // anew: the wait may have been long
  return true;
}

// Tells of a failure, wherever in the life of a unit it came.
Verdict Application::Told(const Link& link, Verdict verdict) {
  if (verdict != Verdict::kFail) return verdict;
  _state = State::kFailed;
  _report(link::Event::Kind::kFailed, OfElement(link.class_name, link.element->LastError()));
  return verdict;
}

// One unit from the source to the sink.
Verdict Application::MoveOne(Unit& unit) {
  const Link& source = _chain.front();
  Verdict verdict = Told(source, _source->Await(unit, *this));
  if (verdict != Verdict::kPass) return verdict;
  CountMissed(unit);
  // As late as can be: requests made while it was awaited are served by it.
  ReadControl(unit);
  verdict = Admit(unit);
  if (verdict != Verdict::kPass) return Skip(unit, verdict);
  unit.room = _sink->Reserve();
  if (unit.room.empty() && !_source->IsLive() && !WaitForRoom(unit)) return Verdict::kEnd;
  if (unit.room.empty() && !_source->IsContinuous()) {
    _sink->CountDropped();
    return Told(source, _source->Skip(unit));
  }
  unit.sequence = unit.capture - _skipped;
  verdict = PassThrough(unit, 0);
  if (verdict == Verdict::kPass) _next_sequence = unit.sequence + 1;
  if (verdict == Verdict::kNeedMore) ++_skipped;
  return verdict;
}

// From the element `first` on.
Verdict Application::PassThrough(Unit& unit, std::size_t first) {
  for (std::size_t i = first; i < _chain.size(); ++i) {
    const Verdict verdict = Told(_chain[i], _chain[i].element->Process(unit));
    if (verdict != Verdict::kPass) return verdict;
  }
  return Verdict::kPass;
}

// What the elements keep back still belongs to the input that has ended. kEnd when it is through.
Verdict Application::Drain(Unit& unit) {
  for (std::size_t i = 0; i < _chain.size(); ++i) {
    while (!_is_stopping && _chain[i].element->KeepsBack()) {
      unit.room = _sink->Reserve();
      const bool waits = unit.room.empty() && !_source->IsLive();
      if (waits && !WaitForRoom(unit)) return Verdict::kEnd;
      const Verdict verdict = Told(_chain[i], _chain[i].element->Drain(unit));
      if (verdict == Verdict::kFail) return verdict;
      if (verdict != Verdict::kPass) break;
      unit.sequence = _next_sequence;
      const Verdict passed = PassThrough(unit, i + 1);
      if (passed == Verdict::kFail) return passed;
      if (passed == Verdict::kPass) ++_next_sequence;
    }
  }
  return Verdict::kEnd;
}

void Application::Run() {
  for (const Link& link : _chain) link.element->Start();
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
    _state = State::kEnded;
    _report(link::Event::Kind::kEnd, "end of input");
    break;
  }
  for (const Link& link : _chain) link.element->Stop();
}

}  // namespace tessel::rtos
