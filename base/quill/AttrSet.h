// Attribute sets and the layout-string syntax that is their textual form.
//
//   set     = [ pair *( "," pair ) ]
//   pair    = key "=" value
//   value   = *char             ; braces balanced, no "," outside braces
//           / "{" *char "}"     ; braces balanced; the outer pair is not part of the value
//   layout  = element *( "+" element )
//   element = class [ ":" [ set ] ]
//
// Both are parsed in linear time, with limits on length and nesting, because the text may come from
// another process.
#pragma once

#include <charconv>
#include <chrono>
#include <concepts>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "quill/Visibility.h"

namespace quill::base {

inline constexpr std::size_t kMaxTextBytes = std::size_t{1} << 20;
inline constexpr int kMaxNesting = 64;

// Ordered key/value pairs of text. Keys are unique. One thread at a time for each set.
class QUILL_PUBLIC AttrSet {
 public:
  struct Pair {
    std::string key;
    std::string value;
    friend bool operator==(const Pair&, const Pair&) = default;
  };

  AttrSet();
  // As Parse(); empty when the text is malformed.
  explicit AttrSet(const char* text);
  ~AttrSet();
  AttrSet(const AttrSet& other);
  AttrSet(AttrSet&& other) noexcept;
  AttrSet& operator=(const AttrSet& other);
  AttrSet& operator=(AttrSet&& other) noexcept;

  // Replaces the contents. False when the text is malformed; the old contents then stay and Error()
  // says where and why. If a key occurs twice, the pair keeps its first position and gets the last
  // value.
  bool Parse(const char* text);
  // Position and reason of the last failure of Parse() or Add(); empty after a success.
  const std::string& Error() const { return _error; }

  // Appends or replaces one pair. False when the pair has no textual form: key or value is null,
  // the key is empty, contains "," "=" "{" or "}" or begins with a blank, or the value has
  // unbalanced braces.
  bool Add(const char* key, const char* value);
  bool Add(const char* key, const std::string& value) { return Add(key, value.c_str()); }
  // Typed add: bool as "true" or "false", numbers in decimal, durations in nanoseconds.
  template <typename T>
  bool Add(const char* key, const T& value);

  // The value as text, or null when the key is absent; borrowed until the set changes.
  const char* Get(const char* key) const;
  // Typed get: false when the key is absent or its text is not a `T`; `out` then keeps its value.
  template <typename T>
  bool Get(const char* key, T& out) const;

  // False when the key is absent.
  bool Remove(const char* key);

  // The textual form, from which Parse() makes the same set. With `braced`, enclosed in braces.
  std::string ToString(bool braced) const;

  const std::vector<Pair>& Pairs() const { return _pairs; }
  friend bool operator==(const AttrSet& a, const AttrSet& b) { return a._pairs == b._pairs; }

 private:
  std::vector<Pair> _pairs;
  std::unordered_map<std::string, std::size_t> _places;  // key -> index into _pairs
  std::string _error;
};

// One element of a chain.
struct LayoutElement {
  std::string class_name;
  AttrSet params;
};

// Reads a chain of elements. False with `error` set (position and reason) when it is malformed or
// empty; `elements` then keeps its contents. Any thread.
QUILL_PUBLIC bool ParseLayout(const char* text, std::vector<LayoutElement>& elements,
                              std::string& error);

// Text to bool: "true", "yes", "on", "1" and "false", "no", "off", "0", in any case. False when the
// text is none of these; `out` then keeps its value.
QUILL_PUBLIC bool ConvertToImpl(const char* text, bool& out);
// Text to integer: the whole text is a decimal number with an optional sign, in the range of the
// type. This function and the next are inline, so that a plug-in needs no symbol of the host.
template <std::integral Number>
bool ConvertToImpl(const char* text, Number& out) {
  if (text == nullptr) return false;
  if (text[0] == '+' && text[1] != '-') ++text;
  Number number = 0;
  const char* end = text + std::strlen(text);
  const auto [stop, failure] = std::from_chars(text, end, number);
  if (failure != std::errc() || stop != end) return false;
  out = number;
  return true;
}
inline bool ConvertToImpl(const char* text, std::string& out) {
  if (text == nullptr) return false;
  out = text;
  return true;
}

template <typename T>
bool AttrSet::Add(const char* key, const T& value) {
  if constexpr (std::is_same_v<T, bool>) {
    return Add(key, value ? "true" : "false");
  } else if constexpr (std::is_arithmetic_v<T>) {
    return Add(key, std::to_string(value).c_str());
  } else {
    return Add(key, std::to_string(std::chrono::nanoseconds(value).count()).c_str());
  }
}

template <typename T>
bool AttrSet::Get(const char* key, T& out) const {
  const char* text = Get(key);
  return text != nullptr && ConvertToImpl(text, out);
}

}  // namespace quill::base
