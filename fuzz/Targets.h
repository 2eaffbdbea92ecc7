// The fuzz targets: one function each, which a fuzzer calls with what it makes up and the tests
// call with the files of corpus/NAME.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tessel::fuzz {

// Returns 0. Ends the process when the code under it does not do as promised. One thread at a time.
using Entry = int (*)(const std::uint8_t* data, std::size_t size_bytes);

struct Target {
  const char* name;  // its folder in corpus/, and its row in scripts/fuzz
  Entry entry;
};
std::span<const Target> Targets();

}  // namespace tessel::fuzz
