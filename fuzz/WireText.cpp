// Requests to the real-time side, one a line of the input, behind a proper "hello".
#include <cstdlib>
#include <string>

#include <sys/socket.h>

#include "Connection.h"
#include "ShmSink.h"

namespace {

using namespace tessel;

// Its input has ended before it began.
class EmptySource : public rtos::Source {
 public:
  bool Open(const rtos::Context&, const rtos::AttrSet&, rtos::Media& media, std::string&) override {
    media.unit_bytes = 100;
    return true;
  }
  rtos::Verdict Await(rtos::Unit&, rtos::StopSignal&) override { return rtos::Verdict::kEnd; }
  rtos::Verdict Process(rtos::Unit&) override { return rtos::Verdict::kEnd; }
  rtos::Verdict Skip(rtos::Unit&) override { return rtos::Verdict::kEnd; }
  bool IsLive() const override { return true; }
};

constexpr rtos::ElementRow kElements[] = {
    {"S", []() -> std::unique_ptr<rtos::Element> { return std::make_unique<EmptySource>(); }},
    {"ShmSink",
     []() -> std::unique_ptr<rtos::Element> { return std::make_unique<rtos::ShmSink>(); }}};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size_bytes) {
  using link::WireMessage;
  std::string error;
  static const auto window = link::SharedWindow::Create(1 << 16, error);
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  const link::UniqueFd near(ends[0]);
  rtos::RealTimeSide side{kElements};
  rtos::Connection connection(link::UniqueFd(ends[1]), side);
  const auto send = [&](const std::string& text, const std::vector<int>& fds) {
    link::SendMessage(near.Get(), {WireMessage::kRequest, 1, text}, fds);
  };
  send("cmd=hello,version=1,base=0x100000", {window->Fd()});
  const link::Bell bell = link::Bell::Create();
  std::string input(reinterpret_cast<const char*>(data), std::min<std::size_t>(size_bytes, 4096));
  for (int lines = 0; lines < 8 && !input.empty(); ++lines) {  // the answers stay in the socket
    const std::size_t end = std::min(input.find('\n'), input.size() - 1);
    const bool has_bells = input.find("offset=") < end;
    send(input.substr(0, end + 1),
         has_bells ? std::vector{bell.Fd(), bell.Fd()} : std::vector<int>());
    input.erase(0, end + 1);
  }
  shutdown(near.Get(), SHUT_WR);
  connection.Serve();
  return 0;
}
