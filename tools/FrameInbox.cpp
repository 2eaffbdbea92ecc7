#include "FrameInbox.h"

#include <utility>

namespace tessel::tool {
namespace {

constexpr std::size_t kMostInTurn = 8;  // frames

}  // namespace

void FrameInbox::Put(Frame frame) {
  const std::lock_guard lock(_mutex);
  if (_is_closed || _is_interrupted) return;  // nobody takes it out any more
  _frames.push_back(std::move(frame));
  _changed.notify_all();
}

bool FrameInbox::PutInTurn(Frame frame) {
  std::unique_lock lock(_mutex);
  _changed.wait(lock,
                [this] { return _is_closed || _is_interrupted || _frames.size() < kMostInTurn; });
  if (_is_closed || _is_interrupted) return false;
  _frames.push_back(std::move(frame));
  _changed.notify_all();
  return true;
}

void FrameInbox::Tell(std::string message) {
  const std::lock_guard lock(_mutex);
  _message = std::move(message);
  _message_is_new = true;
  _changed.notify_all();
}

void FrameInbox::Interrupt() {
  const std::lock_guard lock(_mutex);
  _is_interrupted = true;
  _changed.notify_all();
}

void FrameInbox::Close() {
  const std::lock_guard lock(_mutex);
  _is_closed = true;
  _changed.notify_all();
}

void FrameInbox::Wake() {
  const std::lock_guard lock(_mutex);
  _is_woken = true;
  _changed.notify_all();
}

FrameInbox::News FrameInbox::Wait(Frame& frame, Clock::time_point deadline) {
  std::unique_lock lock(_mutex);
  _changed.wait_until(lock, deadline, [this] {
    return _is_interrupted || !_frames.empty() || _is_closed || _message_is_new || _is_woken;
  });
  _is_woken = false;
  if (_is_interrupted) return News::kInterrupt;
  if (!_frames.empty()) {
    frame = std::move(_frames.front());
    _frames.pop_front();
    _changed.notify_all();  // there is room
    return News::kFrame;
  }
  if (_is_closed) return News::kOver;
  return std::exchange(_message_is_new, false) ? News::kMessage : News::kNothing;
}

std::string FrameInbox::WaitForMessage(Clock::time_point deadline) {
  std::unique_lock lock(_mutex);
  _changed.wait_until(lock, deadline, [this] { return _message.has_value(); });
  return _message.value_or("");
}

}  // namespace tessel::tool
