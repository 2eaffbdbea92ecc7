// What crosses the command wire, as plain records. A record names each of its fields once, in a
// table that both its writer and its reader follow:
//
//   struct Destroy {
//     static constexpr char kName[] = "tesselDestroy";
//     Handle object_base;
//     static constexpr auto Fields() {  // a function, as the record is complete in its body only
//       return std::tuple(Field("object_base", &Destroy::object_base));
//     }
//   };
//
// The text form is an attribute set. A field that is a record, or a list of pairs, is a set inside
// the set. The reader treats the text as untrusted: it checks that each field is present and has a
// value of its type, and skips fields that it does not know, so that either side may add some.
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "quill/AttrSet.h"
#include "quill/ostream_string.h"

namespace tessel::link {

using quill::base::AttrSet;

// A row of a record's table.
template <typename Record, typename Value>
struct Field {
  constexpr Field(const char* field_name, Value Record::*field, bool is_optional = false)
      : name(field_name), member(field), may_lack(is_optional) {}
  const char* name;
  Value Record::*member;
  bool may_lack;  // an absent one keeps the value that a fresh record has
};
// A further argument of Field; a std::optional needs none.
inline constexpr bool kMayLack = true;

// A row for several fields that are optional, and whose order counts.
template <typename Record>
struct SomeOf {
  constexpr SomeOf(std::span<const char* const> field_names, AttrSet Record::*fields)
      : names(field_names), member(fields) {}
  std::span<const char* const> names;
  AttrSet Record::*member;  // those present, in their order
};

// Identifies an object, or is an address: written as "0x" and hexadecimal digits, never 0.
struct Handle {
  std::uint64_t number = 0;
  friend bool operator==(const Handle&, const Handle&) = default;
};

// A set whose keys are no words of this protocol, such as names of sessions; in its order.
template <typename Key, typename Value>
using List = std::vector<std::pair<Key, Value>>;

template <typename T>
concept IsRecord = requires {
  T::Fields();
};
// An enumeration whose words a function WordsOf(T) lists, in the order of its values.
template <typename T>
concept IsChoice = requires(T value) {
  WordsOf(value);
};

template <IsChoice T>
const char* WordOf(T value) {
  return WordsOf(value)[static_cast<std::size_t>(value)];
}

// `name`, and the text behind it as it stands in an attribute set; long texts are not repeated.
inline std::string Quote(const std::string& name, const std::string& text) {
  constexpr std::size_t kLongest = 200;
  AttrSet pair;
  const bool is_quoted = text.size() <= kLongest && pair.Add(name.c_str(), text);
  return is_quoted ? pair.ToString(false)
                   : name + "= of " + std::to_string(text.size()) + " characters";
}

inline std::string JoinWords(std::span<const char* const> words, const char* separator) {
  std::string text;
  for (const char* word : words) text += (text.empty() ? "" : separator) + std::string(word);
  return text;
}

// ToText(): the text of a value. False, with `error`, when it has none: braces out of balance.

template <typename T>
bool ToText(const T& value, std::string& text, std::string& error);

template <typename Record>
[[nodiscard]] bool Write(const Record& record, AttrSet& set, std::string& error);

template <typename T>
bool AddField(const std::string& name, const T& value, AttrSet& set, std::string& error) {
  std::string text;
  if (!ToText(value, text, error)) {
    error.insert(0, name + ": ");
    return false;
  }
  if (set.Add(name.c_str(), text)) return true;
  error = set.Error();
  return false;
}

template <typename T>
bool AddField(const std::string& name, const std::optional<T>& value, AttrSet& set,
              std::string& error) {
  return !value || AddField(name, *value, set, error);
}

template <typename Key, typename Value>
bool ListToText(const List<Key, Value>& list, std::string& text, std::string& error) {
  AttrSet set;
  for (const auto& [key, value] : list) {
    std::string name;
    if (!ToText(key, name, error) || !AddField(name, value, set, error)) return false;
  }
  text = set.ToString(false);
  return true;
}

template <typename T>
bool ToText(const T& value, std::string& text, std::string& error) {
  if constexpr (std::same_as<T, std::string>) {
    text = value;
  } else if constexpr (std::same_as<T, bool>) {
    text = value ? "true" : "false";
  } else if constexpr (std::integral<T>) {
    text = std::to_string(value);
  } else if constexpr (std::same_as<T, Handle>) {
    text = quill::base::HandleText(value.number);
  } else if constexpr (std::same_as<T, AttrSet>) {
    text = value.ToString(false);
  } else if constexpr (IsChoice<T>) {
    text = WordOf(value);
  } else if constexpr (IsRecord<T>) {
    AttrSet set;
    if (!Write(value, set, error)) return false;
    text = set.ToString(false);
  } else {
    return ListToText(value, text, error);
  }
  return true;
}

// FromText(): reads the untrusted text of the value called `name`. False with `error`, which says
// where it stands and what is wrong with it.

template <typename Record>
[[nodiscard]] bool Read(const AttrSet& untrusted, Record& record, std::string& error);

inline bool Refuse(const std::string& name, const std::string& untrusted, const char* reason,
                   std::string& error) {
  error = Quote(name, untrusted) + " " + reason;
  return false;
}

template <IsChoice T>
bool ChoiceFromText(const std::string& name, const std::string& untrusted, T& value,
                    std::string& error) {
  const std::span<const char* const> words = WordsOf(value);
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (untrusted != words[i]) continue;
    value = static_cast<T>(i);
    return true;
  }
  return Refuse(name, untrusted, ("is none of " + JoinWords(words, ", ")).c_str(), error);
}

template <typename T>
bool FromText(const std::string& name, const std::string& untrusted, T& value, std::string& error);

template <typename Key, typename Value>
bool ListFromSet(const AttrSet& untrusted, List<Key, Value>& list, std::string& error) {
  list.clear();
  for (const AttrSet::Pair& pair : untrusted.Pairs()) {
    auto& [key, value] = list.emplace_back();
    if (!FromText("key", pair.key, key, error) || !FromText(pair.key, pair.value, value, error)) {
      return false;
    }
  }
  return true;
}

template <typename T>
bool FromText(const std::string& name, const std::string& untrusted, T& value, std::string& error) {
  if constexpr (std::same_as<T, std::string>) {
    value = untrusted;
    return true;
  } else if constexpr (std::same_as<T, bool>) {
    return quill::base::ConvertToImpl(untrusted.c_str(), value) ||
           Refuse(name, untrusted, "is neither true nor false", error);
  } else if constexpr (std::integral<T>) {
    return quill::base::ConvertToImpl(untrusted.c_str(), value) ||
           Refuse(name, untrusted, "cannot be read as a number", error);
  } else if constexpr (std::same_as<T, Handle>) {
    value.number = quill::base::ReadHandle(untrusted.c_str());
    return value.number != 0 || Refuse(name, untrusted, "is no handle", error);
  } else if constexpr (IsChoice<T>) {
    return ChoiceFromText(name, untrusted, value, error);
  } else {
    AttrSet set;
    bool is_read = set.Parse(untrusted.c_str());
    if (!is_read) error = set.Error();
    if constexpr (std::same_as<T, AttrSet>) {
      value = std::move(set);
    } else if constexpr (IsRecord<T>) {
      is_read = is_read && Read(set, value, error);
    } else {
      is_read = is_read && ListFromSet(set, value, error);
    }
    if (!is_read) error.insert(0, name + ": ");
    return is_read;
  }
}

template <typename T>
bool FromText(const std::string& name, const std::string& untrusted, std::optional<T>& value,
              std::string& error) {
  return FromText(name, untrusted, value.emplace(), error);
}

template <typename T>
inline constexpr bool kIsOptional = false;
template <typename T>
inline constexpr bool kIsOptional<std::optional<T>> = true;

template <typename Record, typename Owner, typename Value>
bool WriteField(const Record& record, const Field<Owner, Value>& field, AttrSet& set,
                std::string& error) {
  return AddField(field.name, record.*field.member, set, error);
}

template <typename Record>
bool WriteField(const Record& record, const SomeOf<Record>& some, AttrSet& set, std::string&) {
  for (const AttrSet::Pair& pair : (record.*some.member).Pairs()) {
    set.Add(pair.key.c_str(), pair.value);
  }
  return true;
}

template <typename Record, typename Owner, typename Value>
bool ReadField(const AttrSet& untrusted, const Field<Owner, Value>& field, Record& record,
               std::string& error) {
  const char* text = untrusted.Get(field.name);
  if (text != nullptr) return FromText(field.name, text, record.*field.member, error);
  if (field.may_lack || kIsOptional<Value>) return true;
  error = std::string(field.name) + " is missing";
  return false;
}

template <typename Record>
bool ReadField(const AttrSet& untrusted, const SomeOf<Record>& some, Record& record, std::string&) {
  for (const AttrSet::Pair& pair : untrusted.Pairs()) {
    for (const char* name : some.names) {
      if (pair.key == name) (record.*some.member).Add(name, pair.value);
    }
  }
  return true;
}

// Adds the fields to `set`; those that it has already keep their places. False, with `error`, when
// a value cannot be written as text. Any thread, as all of this.
template <typename Record>
bool Write(const Record& record, AttrSet& set, std::string& error) {
  const auto write = [&](const auto&... field) {
    return (WriteField(record, field, set, error) && ...);
  };
  return std::apply(write, Record::Fields());
}

// False, with `error`, at the first field that is missing or has no value of its type; `record` is
// then not to be used. REQUIRES: `record` is a fresh one.
template <typename Record>
bool Read(const AttrSet& untrusted, Record& record, std::string& error) {
  const auto read = [&](const auto&... field) {
    return (ReadField(untrusted, field, record, error) && ...);
  };
  return std::apply(read, Record::Fields());
}

// Whether a record of this type has a field of that name.
template <typename Record>
bool HasField(const std::string& name) {
  const auto has = [&](const auto&... field) { return ((name == field.name) || ...); };
  return std::apply(has, Record::Fields());
}

}  // namespace tessel::link
