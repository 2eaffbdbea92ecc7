#include "CommandChannel.h"

#include <utility>

#include <sys/socket.h>

#include "ForkedChild.h"
#include "messages/Request.h"
#include "Threads.h"

namespace quill::stream {

using base::AttrSet;
using tessel::UniqueFd;
using tessel::link::SendResult;
using tessel::link::WireMessage;

CommandChannel::CommandChannel(UniqueFd socket) : _socket(std::move(socket)) {
  CloseInForkedChild(_socket.Get());
}

CommandChannel::~CommandChannel() { KeepInForkedChild(_socket.Get()); }

bool CommandChannel::Start(std::shared_ptr<Handler> handler, std::string& error) {
  std::thread thread = StartThread("tessel-wire", [this, held = std::move(handler)] {
    Receive(*held);
    held->OnDisconnect();
  });
  if (!thread.joinable()) {
    error = "no thread for the real-time side";
    return false;
  }
  thread.detach();
  return true;
}

void CommandChannel::Hangup() const { shutdown(_socket.Get(), SHUT_RDWR); }

std::uint32_t CommandChannel::Send(const AttrSet& body, const std::vector<int>& fds,
                                   const std::shared_ptr<Pending>& pending, std::string& error) {
  std::uint32_t number = 0;
  {
    const std::lock_guard lock(_mutex);
    if (!_is_alive) {
      error = kLoss;
      return 0;
    }
    number = ++_last_number;
    _pending[number] = pending;
  }
  const auto sent = tessel::link::SendMessage(
      _socket.Get(), {WireMessage::kRequest, number, body.ToString(false)}, fds);
  if (sent == SendResult::kSent) return number;
  const std::lock_guard lock(_mutex);
  _pending.erase(number);
  error = sent == SendResult::kGone
              ? kLoss
              : std::string(body.Get(tessel::link::kCommandKey)) +
                    (sent == SendResult::kTooLong ? ": the description is too long"
                                                  : ": the real-time side takes no commands");
  return 0;
}

bool CommandChannel::Request(const AttrSet& body, const std::vector<int>& fds,
                             std::chrono::nanoseconds timeout, OnAnswer on_answer, AttrSet& answer,
                             std::string& error) {
  auto pending = std::make_shared<Pending>();
  const bool wants_late_answer = static_cast<bool>(on_answer);
  pending->on_answer = std::move(on_answer);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const std::uint32_t number = Send(body, fds, pending, error);
  if (number == 0) return false;
  std::unique_lock lock(_mutex);
  if (!_answered.wait_until(lock, deadline, [&] { return pending->is_done || !_is_alive; })) {
    if (!wants_late_answer) _pending.erase(number);
    error = std::string(body.Get(tessel::link::kCommandKey)) + ": no answer within " +
            std::to_string(timeout / std::chrono::milliseconds(1)) + " ms";
    return false;
  }
  if (!pending->is_done) {
    error = kLoss;
    return false;
  }
  answer = pending->answer;
  const char* refusal = tessel::link::RefusalIn(answer);
  if (refusal == nullptr) return true;
  error = refusal;
  return false;
}

void CommandChannel::Post(const AttrSet& body, OnAnswer on_answer) {
  auto pending = std::make_shared<Pending>();
  pending->on_answer = std::move(on_answer);
  std::string error;
  Send(body, {}, pending, error);
}

void CommandChannel::Receive(Handler& handler) {
  WireMessage message;
  std::vector<UniqueFd> fds;
  while (ReceiveMessage(_socket.Get(), message, fds)) {
    if (message.kind == WireMessage::kAnswer) {
      TakeAnswer(message.number, message.text);
    } else if (message.kind == WireMessage::kEvent) {
      handler.OnEvent(message.text);
    }
  }
}

void CommandChannel::TakeAnswer(std::uint32_t number, const std::string& text) {
  std::shared_ptr<Pending> pending;
  {
    const std::lock_guard lock(_mutex);
    const auto place = _pending.find(number);
    if (place == _pending.end()) return;  // no thread waits for it any more
    pending = std::move(place->second);
    _pending.erase(place);
  }
  AttrSet answer;
  if (!answer.Parse(text.c_str())) {
    answer = tessel::link::ToRefusal("an answer that cannot be read");
  }
  if (pending->on_answer) pending->on_answer(answer);
  const std::lock_guard lock(_mutex);
  pending->answer = std::move(answer);
  pending->is_done = true;
  _answered.notify_all();
}

void CommandChannel::Close() {
  std::map<std::uint32_t, std::shared_ptr<Pending>> pending;  // destroyed after the lock
  const std::lock_guard lock(_mutex);
  _is_alive = false;
  pending.swap(_pending);
  _answered.notify_all();
}

}  // namespace quill::stream
