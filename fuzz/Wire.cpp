// Requests to the real-time side, one a line of the input, on its own connection behind a proper
// "hello". In a line, "$1" to "$9" stand for the handles of the first applications; a pair of
// eventfds goes along for each "offset=".
#include <sys/socket.h>
#include <unistd.h>

#include "AudioDevices.h"
#include "Connection.h"
#include "ElementParams.h"
#include "Input.h"
#include "quill/ostream_string.h"
#include "ShmSink.h"

namespace tessel::fuzz {
namespace {

using namespace rtos;
using link::WireMessage;

// Delivers `units` units of 100 bytes, then its input ends; fails at the unit `fails`.
class PlainSource : public Source {
 public:
  bool Open(const Context& context, const AttrSet& params, Media& media,
            std::string& error) override {
    media.unit_bytes = 100;
    media.description.Add("codec", "plain");
    media.description.Add("header", "00");
    _is_live = context.Settings().paced;
    return ReadInt(params, "units", 0, 99, _units, error) &&
           ReadInt(params, "fails", 0, 99, _fails, error);
  }
  Verdict Await(Unit& unit, StopSignal& stop) override {
    unit.capture = _next++;
    unit.frames_per_second = 1000;
    if (static_cast<int>(_next) > _units || !stop.SleepUntil(0)) return Verdict::kEnd;
    return static_cast<int>(_next) == _fails ? FailWith("lens={gone") : Verdict::kPass;
  }
  Verdict Process(Unit& unit) override {
    unit.size_bytes = std::min<std::size_t>(unit.room.size(), 100);
    return Verdict::kPass;
  }
  Verdict Skip(Unit&) override { return Verdict::kPass; }
  bool IsLive() const override { return _is_live; }
  bool IsContinuous() const override { return _units % 2 == 0; }

 private:
  int _units = 0;
  int _fails = 0;
  bool _is_live = true;
  std::uint32_t _next = 0;
};

// Passes the first unit, answers to every other one with the number `verdict`, and keeps `keeps`
// back.
class PlainEncoder : public Element {
 public:
  bool Open(const Context&, const AttrSet& params, Media&, std::string& error) override {
    return ReadInt(params, "verdict", 0, 2, _verdict, error) &&
           ReadInt(params, "keeps", 0, 9, _keeps, error);
  }
  Verdict Admit(const Unit& unit) override {
    return unit.capture % 2 == 1 ? static_cast<Verdict>(_verdict) : Verdict::kPass;
  }
  Verdict Process(Unit& unit) override {
    return unit.capture < static_cast<unsigned>(_keeps) ? Verdict::kNeedMore : Verdict::kPass;
  }
  bool KeepsBack() const override { return _keeps > 0; }
  Verdict Drain(Unit&) override { return --_keeps == 2 ? FailWith("worn") : Verdict::kPass; }

 private:
  int _verdict = 0;
  int _keeps = 0;
};

constexpr ControlWord kEncoderWords[] = {&VbrcBlock::bitrate_target, &VbrcBlock::qp_max,
                                         &VbrcBlock::keyframe_req};
constexpr ControlWord kTriggerWords[] = {&VbrcBlock::trigger_req};
constexpr ElementRow kElements[] = {
    {"S", &MakeElement<PlainSource>},
    {"h264-encoder-dma", &MakeElement<PlainEncoder>, true, std::nullopt, kEncoderWords},
    {.name = "FrameTrigger", .make = &MakeElement<PlainEncoder>, .reads = kTriggerWords},
    {"ShmSink", &MakeElement<ShmSink>},
};

// As StreamRegistry makes them.
std::string WithHandles(const std::string& line) {
  std::string text;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const bool is_handle = line[i] == '$' && i + 1 < line.size() && std::isdigit(line[i + 1]) != 0;
    if (!is_handle) {
      text += line[i];
      continue;
    }
    const auto process = static_cast<std::uint64_t>(getpid());
    text += quill::base::HandleText((process << 24) + static_cast<unsigned>(line[++i] - '0'));
  }
  return text;
}

}  // namespace

int FuzzWire(const std::uint8_t* data, std::size_t size_bytes) {
  constexpr std::size_t kMostBytes = 4096;  // the socket holds all requests, and their answers
  constexpr int kMostRequests = 16;
  std::string error;
  static const auto window = link::SharedWindow::Create(1 << 16, error);
  Require(window != nullptr, "there is a window");
  std::memset(window->Base(), 0, window->Size());
  int ends[2];
  Require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "there is a socket");
  const UniqueFd near(ends[0]);
  AudioDevices audio = AudioDevices::Usual();
  RealTimeSide side{kElements, audio};
  Connection connection(UniqueFd(ends[1]), side);
  const auto send = [&](std::uint32_t number, const std::string& text,
                        const std::vector<int>& fds) {
    link::SendMessage(near.Get(), {WireMessage::kRequest, number, text}, fds);
  };
  link::Hello hello;
  hello.base.number = 0x100000;
  AttrSet first;
  Require(link::WriteRequest(hello, first, error), "hello can be written");
  send(1, first.ToString(false), {window->Fd()});
  const link::Doorbell bell = link::Doorbell::Create();
  Input input(data, std::min(size_bytes, kMostBytes));
  std::uint32_t sent = 1;
  while (!input.IsEmpty() && sent < kMostRequests) {
    const std::string line = WithHandles(input.Line());
    std::vector<int> bells;
    std::size_t at = 0;
    while (bells.size() < link::kMaxMessageFds && (at = line.find("offset=", at)) != line.npos) {
      bells.insert(bells.end(), 2, bell.Fd());
      ++at;
    }
    send(++sent, line, bells);
  }
  shutdown(near.Get(), SHUT_WR);
  connection.Serve();

  // Each request has one answer, in their order.
  WireMessage message;
  std::vector<UniqueFd> fds;
  std::uint32_t answered = 0;
  while (link::ReceiveMessage(near.Get(), message, fds)) {
    AttrSet text;
    Require(text.Parse(message.text.c_str()), "the real-time side sends attribute sets");
    if (message.kind == WireMessage::kAnswer) Require(message.number == ++answered, "in order");
  }
  return 0;
}

}  // namespace tessel::fuzz
