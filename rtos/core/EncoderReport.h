// What every encoder tells through the rate-control block.
#pragma once

#include <cstdint>
#include <deque>

#include "Element.h"
#include "EncoderParams.h"

namespace tessel::rtos {

// Bits over the last second of captured time. One thread.
class BitRateMeter {
 public:
  // Counts a unit in and returns bits/s, 0 until a whole second was seen.
  int Add(std::int64_t time_ns, std::size_t bytes);
  void Reset();

 private:
  struct Entry {
    std::int64_t time_ns;
    std::size_t bytes;
  };
  std::deque<Entry> _entries;  // of the last second
  std::int64_t _first_ns = 0;
  std::size_t _bytes = 0;  // sum of _entries
};

// One thread.
class EncoderReport {
 public:
  // Measures anew.
  void Start() { _meter.Reset(); }
  // Tells of a finished unit, its QP and the bit rate with it, and counts it where that is asked
  // for. Without a block nobody is told.
  void Tell(const Unit& unit, const EncoderParams& params);
  // Nothing is encoded any more: the bit rate is 0.
  void Stop(const EncoderParams& params);

 private:
  BitRateMeter _meter;
};

}  // namespace tessel::rtos
