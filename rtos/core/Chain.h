// The elements that one layout string asks for, open and in order.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Element.h"

namespace tessel::rtos {

struct Chain {
  struct Stage {
    const ElementRow* row;
    std::unique_ptr<Element> element;
  };
  std::vector<Stage> stages;
  Source* source = nullptr;    // the first of `stages`
  Sink* sink = nullptr;        // the last of `stages`
  VbrcBlock* block = nullptr;  // steers all elements; null: nothing steers them
  std::string session_name;    // as the layout has it
  Media media;                 // that the chain delivers
};

// What is said about one element of a chain.
inline std::string AboutElement(const std::string& name, const std::string& reason) {
  return std::string("element \"").append(name).append("\": ").append(reason);
}

}  // namespace tessel::rtos
