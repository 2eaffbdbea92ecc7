// Texts of attribute sets: what is accepted can be written and read again.
#include <cstdlib>

#include "quill/AttrSet.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size_bytes) {
  using quill::base::AttrSet;
  const std::string text(reinterpret_cast<const char*>(data), size_bytes);
  AttrSet set;
  if (set.Parse(text.c_str()) != set.Error().empty()) std::abort();
  AttrSet again;
  if (!again.Parse(set.ToString(false).c_str()) || !(again == set)) std::abort();
  // Each pair is found by its key, and can be added to another set.
  AttrSet copy;
  for (const AttrSet::Pair& pair : set.Pairs()) {
    if (set.Get(pair.key.c_str()) != pair.value) std::abort();
    if (!copy.Add(pair.key.c_str(), pair.value)) std::abort();
    long long number = 0;
    bool word = false;
    set.Get(pair.key.c_str(), number);
    set.Get(pair.key.c_str(), word);
  }
  if (!(copy == set)) std::abort();
  while (!set.Pairs().empty()) {
    if (!set.Remove(std::string(set.Pairs().front().key).c_str())) std::abort();
  }
  return 0;
}
