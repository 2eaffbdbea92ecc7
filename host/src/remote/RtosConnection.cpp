#include "RtosConnection.h"

#include <algorithm>
#include <atomic>
#include <string_view>
#include <utility>

#include "messages/Applications.h"
#include "messages/Hello.h"
#include "quill/Host.h"
#include "quill/ostream_string.h"
#include "Timeouts.h"
#include "Window.h"

namespace quill::stream {
namespace {

using base::AttrSet;
using std::chrono::nanoseconds;

std::atomic<std::uint64_t> g_last_number{0};
std::atomic<std::uint64_t> g_live_number{0};  // of the connection that is alive; 0: none is

}  // namespace

bool RtosConnection::IsLost(std::uint64_t number) {
  return number != 0 && number != g_live_number.load(std::memory_order_acquire);
}

std::shared_ptr<RtosConnection> RtosConnection::Open(std::string& error) {
  if (Window::Globle() == nullptr) {
    error = "there is no shared window";
    return nullptr;
  }
  const std::string path = host::RtosSocket();
  RtosProcess process;
  tessel::UniqueFd socket = path.empty() ? process.Spawn(error) : RtosProcess::Connect(path, error);
  if (!socket.IsOpen()) return nullptr;
  std::shared_ptr<RtosConnection> connection(new RtosConnection(process, std::move(socket)));
  g_live_number.store(connection->_number, std::memory_order_release);
  if (!connection->_channel.Start(connection, error)) {
    connection->OnDisconnect();
    return nullptr;
  }
  if (connection->Handshake(error)) return connection;
  connection->_channel.Hangup();
  return nullptr;
}

RtosConnection::RtosConnection(const RtosProcess& process, tessel::UniqueFd socket)
    : _number(++g_last_number),
      _process(process),
      _process_id(process.Child()),
      _channel(std::move(socket)) {}

bool RtosConnection::Handshake(std::string& error) {
  const tessel::link::SharedWindow& memory = Window::Globle()->Memory();
  tessel::link::Hello hello;
  hello.base.number = reinterpret_cast<std::uintptr_t>(memory.Base());
  AttrSet request;
  AttrSet untrusted;
  tessel::link::HelloAnswer answer;
  const bool is_child = _process.Child() != 0;
  const nanoseconds timeout = is_child ? StartTimeout() : CommandTimeout();
  if (!WriteRequest(hello, request, error) ||
      !_channel.Request(request, {memory.Fd()}, timeout, nullptr, untrusted, error) ||
      !ReadAnswer(untrusted, answer, error)) {
    return false;
  }
  // Clients send signals to it: 1 and what is below are no real-time side.
  if (!is_child && answer.pid && *answer.pid > 1) _process_id = *answer.pid;
  return true;
}

bool RtosConnection::Run(AttrSet& args, std::string& error) {
  const char* text = args.Get(tessel::link::kCommandKey);
  if (text == nullptr) {
    error = "no cmd=";
    return false;
  }
  const std::string_view command = text;
  long long timeout_ns = CommandTimeout().count();
  args.Get("timeout", timeout_ns);
  const nanoseconds timeout = std::min(nanoseconds(timeout_ns), kLongestTimeout);
  AttrSet body = args;
  body.Remove("timeout");
  AttrSet answer;
  bool done = false;
  if (command == tessel::link::Create::kName) {
    done = _applications.Create(body, timeout, answer, error);
  } else if (command == tessel::link::Destroy::kName) {
    done = _applications.Destroy(body, timeout, answer, error);
  } else {
    done = _channel.Request(body, {}, timeout, nullptr, answer, error);
  }
  for (const AttrSet::Pair& pair : answer.Pairs()) args.Add(pair.key.c_str(), pair.value);
  return done;
}

void RtosConnection::OnDisconnect() {
  // First: a thread that the rest wakes has to see that its stream is lost.
  std::uint64_t live = _number;
  g_live_number.compare_exchange_strong(live, 0);
  _channel.Close();
  // A child that has hung up is about to end. If it misbehaves and goes on, it ends here: only then
  // may the memory that it used be handed out again.
  _process.End();
  _events.OnDisconnect();
}

}  // namespace quill::stream
