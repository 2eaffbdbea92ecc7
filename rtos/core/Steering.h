// How other clients watch and steer a chain: by the words of its rate-control block, under the
// names that the wire knows.
#pragma once

#include <optional>
#include <string>

#include "Chain.h"
#include "messages/Streams.h"

namespace tessel::rtos {

// Any thread.
class Steering {
 public:
  // `chain` is complete and has to outlive this.
  explicit Steering(const Chain& chain) : _chain(chain) {}

  // Stores `value` in a word. False with `error` when there is no such setting, or the chain does
  // not read it.
  bool SetWord(const std::string& name, int value, std::string& error) const;
  // Counts a request up: for a key frame, for a single frame. False with `error` as above.
  bool CountRequest(const std::string& name, std::string& error) const;
  // All words by name; none in a chain without a block.
  std::optional<link::List<std::string, int>> Words() const;

 private:
  enum class Use { kSetting, kRequest, kReport };
  struct WordRow;
  static const WordRow kWords[];

  VbrcBlock::Word* Find(const std::string& name, Use use, std::string& error) const;
  bool Reads(ControlWord word) const;

  const Chain& _chain;
};

}  // namespace tessel::rtos
