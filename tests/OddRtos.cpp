#include "OddRtos.h"

#include <cstring>
#include <functional>
#include <thread>

#include <sys/socket.h>

#include "AudioDevices.h"
#include "Clock.h"
#include "Connection.h"
#include "ElementTable.h"
#include "Listener.h"
#include "ShmSink.h"

namespace tessel::tests {

using link::SendMessage;
using link::WireMessage;
using quill::base::AttrSet;
using namespace rtos;

namespace {

std::string g_behaviour = "counts";  // constant once elements are made

template <bool kIsSound>
class OddSource : public Source {
 public:
  bool Open(const Context&, const AttrSet&, Media& media, std::string&) override {
    media.unit_bytes = kUnitBytes;
    media.description =
        AttrSet(kIsSound ? "codec=pcm,rate=16000,ch=1,fmt=s16le,bits=16,block=320" : "codec=odd");
    return true;
  }
  Verdict Await(Unit& unit, StopSignal& stop) override {
    const bool never_ends = kIsSound || g_behaviour == "floods" || g_behaviour == "fails";
    if (!never_ends && _next == (g_behaviour == "ends" ? 3 : 500)) return Verdict::kEnd;
    unit.capture = _next;
    unit.frames_per_second = kIsSound ? 50 : 1;
    unit.is_key = _next % 10 == 0;
    const std::int64_t due_ns = _start_ns + _next * kSecondNs / unit.frames_per_second;
    unit.time_ns = due_ns + (kIsSound && _next % 10 == 9 ? std::int64_t{1} << 60 : 0);
    return !kIsSound || stop.SleepUntil(due_ns) ? Verdict::kPass : Verdict::kEnd;
  }
  Verdict Process(Unit& unit) override {
    if (g_behaviour == "fails" && _next == 3) return FailWith("lens=gone");
    std::memset(unit.room.data(), static_cast<int>(_next & 0xff), kUnitBytes);
    unit.size_bytes = kUnitBytes;
    ++_next;
    return Verdict::kPass;
  }
  Verdict Skip(Unit&) override {
    ++_next;
    return Verdict::kPass;
  }
  bool IsLive() const override { return kIsSound; }

 private:
  static constexpr std::size_t kUnitBytes = kIsSound ? 640 : 1000;
  const std::int64_t _start_ns = NowNs() - (kIsSound ? 300'000'000 : 0);
  std::uint32_t _next = 0;
};

class PassElement : public Element {
 public:
  bool Open(const Context&, const AttrSet&, Media&, std::string&) override { return true; }
  Verdict Process(Unit&) override { return Verdict::kPass; }
};

// Only describes the media, so that the H.264 source opens.
class OddEncoder : public PassElement {
 public:
  bool Open(const Context&, const AttrSet&, Media& media, std::string&) override {
    media.description = AttrSet(
        "codec=h264,w=160,h=120,header=000000016742000a0000000168,spsoffset=4,isps=4,ppsoffset=12,"
        "ipps=1,pack=byte-stream");
    return true;
  }
};

constexpr ElementRow kElements[] = {{"pv-yuv-src-adv", &MakeElement<OddSource<false>>},
                                    {"h264-encoder-dma", &MakeElement<OddEncoder>},
                                    {"pv-pcm-src", &MakeElement<OddSource<true>>},
                                    {"PcmFilter", &MakeElement<PassElement>},
                                    {"ShmSink", &MakeElement<ShmSink>}};

void Answer(int socket, std::uint32_t number, const std::string& text) {
  SendMessage(socket, {WireMessage::kAnswer, number, text});
}

// Hands each request to `answer`, until the connection ends.
void Serve(int socket, const std::function<void(std::uint32_t, const AttrSet&)>& answer) {
  WireMessage message;
  std::vector<UniqueFd> fds;
  while (ReceiveMessage(socket, message, fds)) {
    answer(message.number, AttrSet(message.text.c_str()));
  }
}

void Garble(int socket) {
  Serve(socket, [socket](std::uint32_t number, const AttrSet& request) {
    if (std::string(request.Get("cmd")) == "hello") return Answer(socket, number, "");
    Answer(socket, number + 1000, "object_base=0x1");  // to a question nobody asked
    SendMessage(socket, {99, number, "object_base=0x1"});
    SendMessage(socket, {WireMessage::kEvent, 0, "event=end,object_base=0x77"});
    send(socket, "abc", 3, MSG_NOSIGNAL);
    Answer(socket, number, "}{");
  });
}

void Delay(int socket) {
  std::uint32_t create = 0;
  std::uint32_t next = 0;
  Serve(socket, [&](std::uint32_t number, const AttrSet& request) {
    const std::string command = request.Get("cmd");
    if (command == "tesselCreate") {
      create = number;
    } else if (command == "next") {
      next = number;
      Answer(socket, create, "object_base=0x7");
    } else {
      Answer(socket, number, "");
      if (command == "tesselDestroy") {
        Answer(socket, next, std::string("destroyed=") + request.Get("object_base"));
      }
    }
  });
}

// Passes messages on until either connection ends, each first changed by `change`.
void Pass(int from, int to, const std::function<void(WireMessage&)>& change) {
  WireMessage message;
  std::vector<UniqueFd> fds;
  while (ReceiveMessage(from, message, fds)) {
    std::vector<int> lent;
    for (const UniqueFd& fd : fds) lent.push_back(fd.Get());
    change(message);
    if (SendMessage(to, message, lent) != link::SendResult::kSent) break;
  }
  shutdown(to, SHUT_RDWR);
}

void TellMediaOnlyWhenAsked(int socket) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return;
  const UniqueFd near(ends[0]);
  AudioDevices audio = AudioDevices::Usual();
  RealTimeSide side{ElementTable(), audio};
  std::thread real([&] { Connection(UniqueFd(ends[1]), side).Serve(); });
  std::thread requests([&] { Pass(socket, near.Get(), [](WireMessage&) {}); });
  Pass(near.Get(), socket, [](WireMessage& message) {
    AttrSet answer(message.text.c_str());
    if (answer.Get("object_base") != nullptr) answer.Remove("media");
    message.text = answer.ToString(false);
  });
  requests.join();
  real.join();
}

}  // namespace

std::span<const ElementRow> OddElements() { return kElements; }

int ListenAsOddRtos(const std::string& path) {
  std::string error;
  AudioDevices audio = AudioDevices::Usual();
  RealTimeSide side{OddElements(), audio};
  const auto listener = Listener::Create(path, side, error);
  return listener != nullptr && listener->Serve(error) ? 0 : 1;
}

int RunOddRtos(const std::string& behaviour, UniqueFd connection) {
  g_behaviour = behaviour;
  if (behaviour == "exits") return 0;
  if (behaviour == "mutes") {
    Serve(connection.Get(), [](auto...) {});
  } else if (behaviour == "garbles") {
    Garble(connection.Get());
  } else if (behaviour == "asks") {
    TellMediaOnlyWhenAsked(connection.Get());
  } else if (behaviour == "delays") {
    Delay(connection.Get());
  } else {
    AudioDevices audio = AudioDevices::Usual();
    RealTimeSide side{OddElements(), audio};
    Connection(std::move(connection), side).Serve();
  }
  return 0;
}

}  // namespace tessel::tests
