// The host's side of the wire: a client sends its usual commands, and the real-time side answers
// each with a line of the input. A line that begins with "!" is an event and one with "#" an answer
// that nobody waits for; both go in front of the next answer. One with "?" in front of a
// connection's others is its answer to "hello". "%" ends the connection, and the next one goes on
// behind it.
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Input.h"
#include "quill/Factory.h"
#include "quill/Host.h"
#include "Wire.h"

namespace tessel::fuzz {
namespace {

using link::SendMessage;
using link::WireMessage;
using quill::base::AttrSet;
using quill::base::Factory;

// A socket without a file, one after the other in this process.
class Listener {
 public:
  Listener() : _socket(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, _path.data(), _path.size());
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    Require(bind(_socket.Get(), generic, sizeof address) == 0 && listen(_socket.Get(), 9) == 0,
            "there is a socket");
  }
  const std::string& Path() const { return _path; }
  // Not open once the listener is stopped.
  UniqueFd Accept() const {
    return UniqueFd(accept4(_socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  void Stop() const { shutdown(_socket.Get(), SHUT_RDWR); }

 private:
  static std::string NewPath() {
    static int count = 0;
    return std::string(1, '\0') + "tessel-fuzz-" + std::to_string(getpid()) + "-" +
           std::to_string(++count);
  }
  const std::string _path = NewPath();
  const UniqueFd _socket;
};

// Serves one connection until its lines are over.
void Serve(int socket, Input& input) {
  const auto answer = [socket](std::uint32_t number, const std::string& text) {
    SendMessage(socket, {WireMessage::kAnswer, number, text});
  };
  WireMessage request;
  std::vector<UniqueFd> fds;
  if (input.IsEmpty() || !ReceiveMessage(socket, request, fds)) return;  // "hello"
  std::string line = input.Line();
  const bool is_for_hello = line.starts_with('?');
  answer(request.number, is_for_hello ? line.substr(1) : "pid=1");
  if (is_for_hello) line = input.Line();
  bool has_begun = false;
  while (ReceiveMessage(socket, request, fds)) {
    // Devices that an earlier input has made known are asked for first.
    has_begun = has_begun || request.text.find("ProbeAudioDriver") == request.text.npos;
    if (!has_begun) {
      answer(request.number, "error=none");
      continue;
    }
    for (; line.starts_with('!') || line.starts_with('#'); line = input.Line()) {
      if (line[0] == '#') answer(request.number + 1000, line.substr(1));
      if (line[0] == '!') SendMessage(socket, {WireMessage::kEvent, 0, line.substr(1)});
    }
    const bool is_over = request.text.find("cmd=bye") != request.text.npos;
    if (is_over || line == "%" || (line.empty() && input.IsEmpty())) return;
    answer(request.number, line);
    line = input.Line();
  }
}

void Command(const char* text, const std::string& handle = "") {
  AttrSet args(text);
  if (!handle.empty()) args.Add("object_base", handle);
  Factory::Globle().Run("shm0_cmd", args);
}

// What clients ask for, one after the other.
void Ask() {
  const AttrSet application(
      "cmd=tesselCreate,type=Application,layout={type=pipeline,layout={S+ShmSink:session_name=s}}");
  AttrSet create = application;
  Factory::Globle().Run("shm0_cmd", create);
  const char* created = create.Get("object_base");
  const std::string handle = created == nullptr ? "" : created;
  AttrSet source("session_name=s,init=true");
  source.Add("apphd", handle);
  quill::host::Create<quill::base::object>("ShmSource", source.ToString(false).c_str()).reset();
  std::vector<quill::host::RtosStream> streams;
  std::string error;
  if (quill::host::ListRtosStreams(streams, error)) {
    for (const auto& stream : streams) {
      Touch(stream.chain + stream.state + stream.counters.session);
      for (const auto& [key, value] : stream.media) Touch(key + value);
    }
  }
  Command("cmd=tesselMedia", handle);
  Command("cmd=tesselStatus,status=play,timeout=1000000000", handle);
  quill::host::SetControlWord(1, "qp", 1, error);
  quill::host::RequestKeyFrame(1, error);
  quill::host::TriggerFrame(1, error);
  for (int i = 0; i < 2; ++i) {
    AttrSet probe("cmd=ProbeAudioDriver,devType=Speaker");
    Factory::Globle().Run("shm0_cmd", probe);
    AttrSet set("cmd=SetAudioDriver,devType=Speaker,vol=1,mute=true,agc=x");
    if (const char* device = probe.Get("object_base")) set.Add("object_base", device);
    Factory::Globle().Run("shm0_cmd", set);
  }
  create = application;
  create.Add("timeout", 1);  // it comes into being when nobody waits any more
  Factory::Globle().Run("shm0_cmd", create);
  Command("timeout=1");
  Command("cmd=tesselDestroy");
  Command("cmd=tesselDestroy,timeout=0", handle);
  quill::host::Streams();
}

}  // namespace

int FuzzHostWire(const std::uint8_t* data, std::size_t size_bytes) {
  const Listener listener;
  const quill::host::Options before = quill::host::GetOptions();
  quill::host::Options options = before;
  const bool starts = size_bytes > 0 && data[0] == '^';
  options.rtos_program = "/bin/true";
  options.rtos_socket = starts ? "" : listener.Path();
  options.session_bytes = std::size_t{64} << 10;
  quill::host::SetOptions(options);
  const std::jthread real_time_side([&listener, input = Input(data, size_bytes)]() mutable {
    for (;;) {
      const UniqueFd connection = listener.Accept();
      if (!connection.IsOpen()) return;
      Serve(connection.Get(), input);
    }
  });
  Ask();
  Command("cmd=bye");
  listener.Stop();
  quill::host::SetOptions(before);
  return 0;
}

}  // namespace tessel::fuzz
