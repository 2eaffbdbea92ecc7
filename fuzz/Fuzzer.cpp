// The program that fuzzes one target, by libFuzzer: the one that TESSEL_FUZZ_TARGET names. No
// argument does, as the library starts the program again with arguments of its own.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Targets.h"

namespace {

tessel::fuzz::Entry g_entry = nullptr;  // constant once initialised

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* name = std::getenv("TESSEL_FUZZ_TARGET");
  for (const auto& target : tessel::fuzz::Targets()) {
    if (name != nullptr && std::strcmp(name, target.name) == 0) g_entry = target.entry;
  }
  if (g_entry != nullptr) return 0;
  std::fprintf(stderr,
               "TESSEL_FUZZ_TARGET=%s is unknown; the targets are:", name == nullptr ? "" : name);
  for (const auto& target : tessel::fuzz::Targets()) std::fprintf(stderr, " %s", target.name);
  std::fputc('\n', stderr);
  std::exit(2);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size_bytes) {
  return g_entry(data, size_bytes);
}
