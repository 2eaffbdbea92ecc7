#include "ChainBuilder.h"

#include <algorithm>

namespace tessel::rtos {
namespace {

using quill::base::LayoutElement;

// The layout inside a pipeline.
bool ReadLayout(const std::string& text_of_pipeline, std::vector<LayoutElement>& layout,
                std::string& error) {
  AttrSet pipeline;
  if (!pipeline.Parse(text_of_pipeline.c_str())) {
    error = pipeline.Error();
    return false;
  }
  const char* type = pipeline.Get("type");
  const char* text = pipeline.Get("layout");
  if (type == nullptr || std::string(type) != "pipeline" || text == nullptr) {
    error = "an application that holds no pipeline";
    return false;
  }
  return quill::base::ParseLayout(text, layout, error);
}

}  // namespace

bool ChainBuilder::Build(const std::string& pipeline, Chain& chain, std::string& error) {
  Layout layout;
  return ReadLayout(pipeline, layout, error) && MakeElements(layout, chain, error) &&
         OpenElements(layout, chain, error);
}

bool ChainBuilder::MakeElements(const Layout& layout, Chain& chain, std::string& error) {
  for (const LayoutElement& wanted : layout) {
    const auto row = std::find_if(_elements.begin(), _elements.end(), [&](const ElementRow& known) {
      return wanted.class_name == known.name;
    });
    if (row == _elements.end()) {
      error = "no element \"" + wanted.class_name + "\"";
      return false;
    }
    chain.stages.push_back({&*row, row->make()});
    if (row->is_encoder) {
      _encoder = &*row;
      // The rate asked of the encoder is the rate at which the source captures.
      wanted.params.Get("fr", _frames_per_second);
    }
    wanted.params.Get("session_name", chain.session_name);
    if (!TakeBlock(wanted.params.Get("vbrc"), chain, error)) {
      error = AboutElement(wanted.class_name, error);
      return false;
    }
  }
  chain.source = dynamic_cast<Source*>(chain.stages.front().element.get());
  chain.sink = dynamic_cast<Sink*>(chain.stages.back().element.get());
  if (chain.source != nullptr && chain.sink != nullptr) return true;
  error = "a chain that does not begin with a source and end with a sink";
  return false;
}

// One block steers all elements of a chain.
bool ChainBuilder::TakeBlock(const char* address, Chain& chain, std::string& error) const {
  if (address == nullptr) return true;
  VbrcBlock* block = _granted.Block(address, error);
  if (block == nullptr) return false;
  if (chain.block != nullptr && chain.block != block) {
    error = std::string("vbrc=") + address + " is not the block of the elements in front";
    return false;
  }
  chain.block = block;
  return true;
}

bool ChainBuilder::OpenElements(const Layout& layout, Chain& chain, std::string& error) const {
  for (std::size_t i = 0; i < chain.stages.size(); ++i) {
    Element& element = *chain.stages[i].element;
    if (!element.Open(*this, layout[i].params, chain.media, error)) {
      error = AboutElement(layout[i].class_name, error);
      return false;
    }
    QpPolicy* policy = element.Policy();
    for (std::size_t j = 0; policy != nullptr && j < i; ++j)
      chain.stages[j].element->Follow(*policy);
  }
  return true;
}

}  // namespace tessel::rtos
