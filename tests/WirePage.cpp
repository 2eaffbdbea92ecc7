// doc/wire.md against the records of the wire, row by row.
#include <fstream>
#include <regex>
#include <type_traits>

#include <gtest/gtest.h>

#include "messages/All.h"
#include "quill/MediaKeys.h"

namespace tessel::tests {
namespace {

using link::AttrSet;

// The value of a field, as doc/wire.md writes it.
template <typename T>
std::string KindOf(const T& value) {
  if constexpr (link::IsRecord<T>) {
    return std::string("`{") + T::kName + "}`";
  } else if constexpr (link::IsChoice<T>) {
    const std::string words = link::JoinWords(WordsOf(value), "`, `");
    const std::size_t last = words.rfind(", ");
    return "`" + words.substr(0, last) + " or " + words.substr(last + 2) + "`";
  } else if constexpr (std::is_same_v<T, bool>) {
    return "`true` or `false`";
  } else if constexpr (std::is_integral_v<T>) {
    return "number";
  } else if constexpr (std::is_same_v<T, link::Handle>) {
    return "handle";
  } else if constexpr (std::is_same_v<T, AttrSet> || std::is_same_v<T, std::string>) {
    return std::is_same_v<T, AttrSet> ? "set" : "text";
  } else {
    return KindOf(typename T::value_type::first_type()) + "=" +
           KindOf(typename T::value_type::second_type()) + ", …";
  }
}
template <typename T>
std::string KindOf(const std::optional<T>&) {
  return KindOf(T()) + ", optional";
}

template <typename Record>
void AddRows(std::vector<std::string>& rows) {
  const std::string message = std::string("`") + Record::kName + "` | `";
  const auto add = [&]<typename Row>(const Row& row) {
    if constexpr (requires { row.names; }) {
      for (const char* name : row.names) rows.push_back(message + name + "` | setting, optional");
    } else {
      rows.push_back(message + row.name + "` | " + KindOf(Record().*row.member) +
                     (row.may_lack ? ", optional" : ""));
    }
  };
  std::apply([&](const auto&... row) { (add(row), ...); }, Record::Fields());
}

template <typename... Records>
std::vector<std::string> RowsOf(const std::tuple<Records...>*) {
  std::vector<std::string> rows;
  (AddRows<Records>(rows), ...);
  return rows;
}

// Of the table of messages, the first three columns. A row without a message belongs to the one
// above.
std::vector<std::string> RowsOfThePage() {
  std::ifstream page(TESSEL_DOC "/wire.md");
  std::vector<std::string> rows;
  std::string message;
  const std::regex row(R"(\| *(`[^|]*`)? *\| (`[^|]*` \| [^|]*?) \|[^|]*\|)");
  for (std::string line; std::getline(page, line);) {
    std::smatch parts;
    if (!std::regex_match(line, parts, row)) continue;
    if (parts[1].matched) message = parts[1];
    rows.push_back(message + " | " + parts[2].str());
  }
  return rows;
}

TEST(WirePage, ListsTheFieldsThatTheRecordsWriteAndRequire) {
  EXPECT_EQ(RowsOfThePage(), RowsOf(static_cast<const link::AllRecords*>(nullptr)));
}

TEST(WirePage, ListsTheKeysOfMediaWithTheTypesThatAClientGets) {
  std::ifstream page(TESSEL_DOC "/wire.md");
  const std::string text{std::istreambuf_iterator<char>(page), {}};
  const std::string types[] = {"text", "number", "bytes"};
  std::string expected;
  std::string found;
  for (const auto& [name, type] : quill::stream::kMediaKeys) {
    expected += std::string("\n| `") + name + "` | " + types[static_cast<int>(type)];
  }
  const std::regex row("\n\\| `[^`|]*` \\| (text|number|bytes)(?= \\|)");
  for (std::sregex_iterator at(text.begin(), text.end(), row), end; at != end; ++at) {
    found += at->str();
  }
  EXPECT_EQ(found, expected);
}

}  // namespace
}  // namespace tessel::tests
