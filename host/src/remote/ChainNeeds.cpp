#include "ChainNeeds.h"

#include <algorithm>

namespace quill::stream {
namespace {

using base::AttrSet;

void ReadElement(const AttrSet& params, ChainNeeds& needs) {
  for (const auto& [key, value] : params.Pairs()) {
    if (key == "session_name") {
      needs.sessions.push_back(value);
      continue;
    }
    auto block = Window::BlockAt(value.c_str());
    const bool is_known =
        std::find(needs.blocks.begin(), needs.blocks.end(), block) != needs.blocks.end();
    if (block != nullptr && !is_known) needs.blocks.push_back(std::move(block));
  }
}

// A layout is a chain, or a description with a layout of its own.
void ReadLayout(const AttrSet& description, ChainNeeds& needs) {
  const char* layout = description.Get("layout");
  if (layout == nullptr) return;
  AttrSet inner;
  if (inner.Parse(layout)) ReadLayout(inner, needs);
  std::vector<base::LayoutElement> elements;
  std::string error;
  if (!base::ParseLayout(layout, elements, error)) return;
  for (const base::LayoutElement& element : elements) ReadElement(element.params, needs);
}

}  // namespace

ChainNeeds ReadChainNeeds(const AttrSet& description) {
  ChainNeeds needs;
  ReadLayout(description, needs);
  return needs;
}

}  // namespace quill::stream
