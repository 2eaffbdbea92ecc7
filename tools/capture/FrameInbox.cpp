#include "FrameInbox.h"

#include <algorithm>
#include <utility>

namespace tessel::tool {
namespace {

constexpr std::size_t kMostInTurn = 8;  // frames

bool IsAmong(std::size_t lane, unsigned lanes) { return (lanes >> lane & 1U) != 0; }

}  // namespace

void FrameInbox::Put(std::size_t lane, Frame frame) {
  const std::lock_guard lock(_mutex);
  if (_lanes[lane].is_closed || _lanes[lane].is_discarded || _is_interrupted) return;
  _lanes[lane].frames.push_back(std::move(frame));
  _changed.notify_all();
}

bool FrameInbox::PutInTurn(std::size_t lane, Frame frame) {
  std::unique_lock lock(_mutex);
  Lane& into = _lanes[lane];
  _changed.wait(lock, [this, &into] {
    return into.is_closed || _is_interrupted || into.frames.size() < kMostInTurn;
  });
  if (into.is_closed || _is_interrupted) return false;
  if (into.is_discarded) return true;
  into.frames.push_back(std::move(frame));
  _changed.notify_all();
  return true;
}

void FrameInbox::Discard(std::size_t lane) {
  const std::lock_guard lock(_mutex);
  _lanes[lane].is_discarded = true;
}

void FrameInbox::PutMessage(std::size_t lane, std::string message) {
  const std::lock_guard lock(_mutex);
  _lanes[lane].message = std::move(message);
  _lanes[lane].message_is_new = true;
  _changed.notify_all();
}

void FrameInbox::Interrupt() {
  const std::lock_guard lock(_mutex);
  _is_interrupted = true;
  _changed.notify_all();
}

bool FrameInbox::IsInterrupted() {
  const std::lock_guard lock(_mutex);
  return _is_interrupted;
}

void FrameInbox::Close(std::size_t lane) {
  const std::lock_guard lock(_mutex);
  _lanes[lane].is_closed = true;
  _changed.notify_all();
}

void FrameInbox::Wake() {
  const std::lock_guard lock(_mutex);
  _is_woken = true;
  _changed.notify_all();
}

bool FrameInbox::HasNews(unsigned lanes) const {
  for (std::size_t i = 0; i < _lanes.size(); ++i) {
    const Lane& lane = _lanes[i];
    if (!lane.frames.empty() && IsAmong(i, lanes)) return true;
    const bool has_news = lane.is_closed ? !lane.end_is_reported : lane.message_is_new;
    if (lane.frames.empty() && has_news) return true;
  }
  return _is_interrupted || _is_woken;
}

FrameInbox::News FrameInbox::TakeNews(Item& item, unsigned lanes) {
  _is_woken = false;
  if (_is_interrupted) return News::kInterrupt;
  Lane* first = nullptr;
  for (std::size_t i = 0; i < _lanes.size(); ++i) {
    Lane& lane = _lanes[i];
    if (lane.frames.empty() || !IsAmong(i, lanes)) continue;
    if (first != nullptr && first->frames.front()->timestamp <= lane.frames.front()->timestamp) {
      continue;
    }
    first = &lane;
    item.lane = i;
  }
  if (first != nullptr) {
    item.frame = std::move(first->frames.front());
    first->frames.pop_front();
    _changed.notify_all();  // the lane has room again
    return News::kFrame;
  }
  for (item.lane = 0; item.lane < _lanes.size(); ++item.lane) {
    Lane& lane = _lanes[item.lane];
    if (!lane.frames.empty()) continue;
    if (lane.is_closed && !std::exchange(lane.end_is_reported, true)) return News::kOver;
    if (!lane.is_closed && std::exchange(lane.message_is_new, false)) return News::kMessage;
  }
  return News::kNothing;
}

FrameInbox::News FrameInbox::Wait(Item& item, Clock::time_point deadline, unsigned lanes) {
  std::unique_lock lock(_mutex);
  _changed.wait_until(lock, deadline, [this, lanes] { return HasNews(lanes); });
  return TakeNews(item, lanes);
}

void FrameInbox::WaitForEach(unsigned lanes, std::chrono::milliseconds patience,
                             Clock::time_point deadline) {
  std::unique_lock lock(_mutex);
  _changed.wait_until(lock, deadline, [this] { return HasNews(kAllLanes); });
  _changed.wait_for(lock, patience, [this, lanes] {
    bool has_each = true;
    for (std::size_t i = 0; i < _lanes.size(); ++i) {
      has_each = has_each && (!_lanes[i].frames.empty() || !IsAmong(i, lanes));
    }
    return has_each || HasNews(0);
  });
}

std::optional<std::int64_t> FrameInbox::NextStamp(std::size_t lane) {
  const std::lock_guard lock(_mutex);
  const auto& frames = _lanes[lane].frames;
  return frames.empty() ? std::nullopt : std::optional(frames.front()->timestamp);
}

std::string FrameInbox::WaitForMessage(std::size_t lane, Clock::time_point deadline) {
  std::unique_lock lock(_mutex);
  _changed.wait_until(lock, deadline, [&] { return _lanes[lane].message.has_value(); });
  return _lanes[lane].message.value_or("");
}

}  // namespace tessel::tool
