// Attribute sets and layout strings: what is accepted can be written and read again, what is
// refused has a reason.
#include "Input.h"
#include "quill/AttrSet.h"
#include "quill/ostream_string.h"

namespace tessel::fuzz {
namespace {

using quill::base::AttrSet;

// Each pair is found by its key, read as a number and a word, and can be added to another set.
void Walk(AttrSet set) {
  AttrSet copy;
  for (const AttrSet::Pair& pair : set.Pairs()) {
    Require(set.Get(pair.key.c_str()) == pair.value, "a key is found");
    Require(copy.Add(pair.key.c_str(), pair.value), "a pair of one set fits into another");
    long long number = 0;
    unsigned long long count = 0;
    bool word = false;
    set.Get(pair.key.c_str(), number);
    set.Get(pair.key.c_str(), count);
    int whole = 0;
    unsigned size = 0;
    std::string value;
    set.Get(pair.key.c_str(), whole);
    set.Get(pair.key.c_str(), size);
    Require(set.Get(pair.key.c_str(), value) && value == pair.value, "each value is a text");
    set.Get(pair.key.c_str(), word);
    quill::base::ReadHandle(pair.value.c_str());
  }
  Require(copy == set, "the copy is the same");
  Require(!set.Remove("not a key=") && !copy.Add("not a key=", "1"), "no such key");
  copy.Add("number", -1LL);
  copy.Add("word", true);
  while (!set.Pairs().empty()) {
    const std::string key = set.Pairs().front().key;
    Require(set.Remove(key.c_str()) && set.Get(key.c_str()) == nullptr, "a pair can be removed");
  }
}

}  // namespace

int FuzzText(const std::uint8_t* data, std::size_t size_bytes) {
  const std::string text = Input(data, size_bytes).Rest();
  AttrSet set;
  Require(set.Parse(text.c_str()) == set.Error().empty(), "a refused set has a reason");
  AttrSet again;
  Require(again.Parse(set.ToString(false).c_str()) && again == set, "a set reads its own text");
  Walk(set);

  std::vector<quill::base::LayoutElement> chain;
  std::string error;
  const bool is_accepted = quill::base::ParseLayout(text.c_str(), chain, error);
  Require(is_accepted == error.empty() && is_accepted != chain.empty(), "a chain or a reason");
  for (const auto& element : chain) {
    Require(!element.class_name.empty(), "each element has a name");
    for (const auto& [key, value] : element.params.Pairs()) Touch(key + value);
  }
  return 0;
}

}  // namespace tessel::fuzz
