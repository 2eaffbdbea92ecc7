// What every picture encoder reports through the rate-control block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "quill/VbrcBlock.h"

namespace tessel::rtos {

// Bits over the last second of captured time. One thread.
class BitRateMeter {
 public:
  // Counts a unit and returns bits/s; 0 until a whole second was seen.
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
  // `block` is borrowed for the report's life; null: nothing is reported. With `counts_frames` the
  // block's count of frames goes up with each unit. REQUIRES: called before the others.
  void Open(quill::stream::VbrcBlock* block, bool counts_frames);
  // The encoder begins anew: so does the measurement.
  void Start() { _meter.Reset(); }
  // Reports a finished unit: its QP and the bit rate so far.
  void Add(std::int64_t time_ns, std::size_t size_bytes, int qp);
  // The encoder rests: the bit rate is 0.
  void Stop();

 private:
  quill::stream::VbrcBlock* _block = nullptr;
  bool _counts_frames = false;
  BitRateMeter _meter;
};

}  // namespace tessel::rtos
