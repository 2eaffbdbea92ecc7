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

void EncoderReport::Tell(const Unit& unit, const EncoderParams& params) {
  const int bit_rate_bps = _meter.Add(unit.time_ns, unit.size_bytes);
  VbrcBlock* block = params.block;
  if (block == nullptr) return;
  block->bitrate.store(bit_rate_bps, std::memory_order_relaxed);
  block->qp_reported.store(unit.qp, std::memory_order_relaxed);
  if (!params.counts_frames) return;
  // The one writer of the count: no locked instruction needed. Runs over like every running count.
  const auto done = static_cast<std::uint32_t>(block->frame_count.load(std::memory_order_relaxed));
  block->frame_count.store(static_cast<std::int32_t>(done + 1), std::memory_order_relaxed);
}

void EncoderReport::Stop(const EncoderParams& params) {
  if (params.block != nullptr) params.block->bitrate.store(0, std::memory_order_relaxed);
}

}  // namespace tessel::rtos
