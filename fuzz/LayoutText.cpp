// Layout strings: an accepted chain has elements, a refused one a reason.
#include <cstdlib>

#include "quill/AttrSet.h"

namespace {

volatile std::size_t g_touched;  // so that no read is optimised away

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size_bytes) {
  const std::string text(reinterpret_cast<const char*>(data), size_bytes);
  std::vector<quill::base::LayoutElement> chain;
  std::string error;
  const bool is_accepted = quill::base::ParseLayout(text.c_str(), chain, error);
  if (is_accepted != error.empty() || is_accepted == chain.empty()) std::abort();
  for (const auto& element : chain) {
    if (element.class_name.empty()) std::abort();
    for (const auto& [key, value] : element.params.Pairs()) {
      for (const char byte : key + value) g_touched = g_touched + static_cast<unsigned char>(byte);
    }
  }
  return 0;
}
