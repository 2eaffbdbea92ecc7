// From a layout string to a chain whose elements are open.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "Chain.h"
#include "Grants.h"

namespace tessel::rtos {

// Connection thread. Builds one chain.
class ChainBuilder : private Context {
 public:
  // All of it has to outlive this; `elements` and the granted memory have to outlive the chain.
  ChainBuilder(std::span<const ElementRow> elements, GrantedMemory& granted,
               const ChainSettings& settings)
      : _elements(elements), _granted(granted), _settings(settings) {}

  // Builds the chain of `pipeline` ("type=pipeline,layout={…}"). False with `error` naming element,
  // parameter and value.
  bool Build(const std::string& pipeline, Chain& chain, std::string& error);

 private:
  using Layout = std::vector<quill::base::LayoutElement>;

  bool MakeElements(const Layout& layout, Chain& chain, std::string& error);
  bool TakeBlock(const char* address, Chain& chain, std::string& error) const;
  bool OpenElements(const Layout& layout, Chain& chain, std::string& error) const;

  // Context
  const ChainSettings& Settings() const override { return _settings; }
  VbrcBlock* Block(const char* text, std::string& error) const override {
    return _granted.Block(text, error);
  }
  std::unique_ptr<link::SessionProducer> Session(const char* name,
                                                 std::string& error) const override {
    return _granted.TakeSession(name, error);
  }
  int FramesPerSecond() const override { return _frames_per_second; }
  const ElementRow* Encoder() const override { return _encoder; }

  const std::span<const ElementRow> _elements;
  GrantedMemory& _granted;
  const ChainSettings& _settings;
  int _frames_per_second = 30;
  const ElementRow* _encoder = nullptr;
};

}  // namespace tessel::rtos
