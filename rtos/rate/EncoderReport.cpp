#include "EncoderReport.h"

#include <algorithm>

#include "Clock.h"

namespace tessel::rtos {

int BitRateMeter::Add(std::int64_t time_ns, std::size_t bytes) {
  if (_entries.empty()) _first_ns = time_ns;
  _entries.push_back({time_ns, bytes});
  _bytes += bytes;
  while (time_ns - _entries.front().time_ns >= kSecondNs) {
    _bytes -= _entries.front().bytes;
    _entries.pop_front();
  }
  if (time_ns - _first_ns < kSecondNs) return 0;
  return static_cast<int>(std::min<std::size_t>(_bytes * 8, INT32_MAX));
}

void BitRateMeter::Reset() {
  _entries.clear();
  _bytes = 0;
}

void EncoderReport::Open(quill::stream::VbrcBlock* block, bool counts_frames) {
  _block = block;
  _counts_frames = counts_frames;
}

void EncoderReport::Add(std::int64_t time_ns, std::size_t size_bytes, int qp) {
  const int bit_rate_bps = _meter.Add(time_ns, size_bytes);
  if (_block == nullptr) return;
  _block->bitrate.store(bit_rate_bps, std::memory_order_relaxed);
  _block->qp_reported.store(qp, std::memory_order_relaxed);
  if (!_counts_frames) return;
  // This thread is the only writer of the count, so no locked instruction is needed. It wraps like
  // every running count.
  const auto done = static_cast<std::uint32_t>(_block->frame_count.load(std::memory_order_relaxed));
  _block->frame_count.store(static_cast<std::int32_t>(done + 1), std::memory_order_relaxed);
}

void EncoderReport::Stop() {
  if (_block != nullptr) _block->bitrate.store(0, std::memory_order_relaxed);
}

}  // namespace tessel::rtos
