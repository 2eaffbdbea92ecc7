#include "quill/AttrSet.h"

#include <cstring>

#include <strings.h>

namespace quill::base {
namespace {

// One scan of a text: its position, and the reason why it failed.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : _text(text) {}

  std::size_t At() const { return _at; }
  bool AtEnd() const { return _at == _text.size(); }
  char Peek() const { return _text[_at]; }
  void Skip() { ++_at; }
  std::string_view From(std::size_t begin) const { return _text.substr(begin, _at - begin); }

  bool Refuse(std::size_t position, const char* reason) {
    if (error.empty()) error = "position " + std::to_string(position) + ": " + reason;
    return false;
  }

  // Moves to the first character outside braces that occurs in `stops`, or to the end. Leaves
  // `spare` levels of nesting free.
  bool SkipTo(const char* stops, int spare = 0) {
    int depth = 0;
    std::size_t opened = 0;  // the last "{" of the outermost level
    for (; !AtEnd(); Skip()) {
      const char c = Peek();
      if (depth == 0 && std::strchr(stops, c) != nullptr) return true;
      if (c == '{') {
        if (depth == 0) opened = _at;
        if (++depth > kMaxNesting - spare) return Refuse(_at, "nested deeper than 64");
      } else if (c == '}' && --depth < 0) {
        return Refuse(_at, "\"}\" without \"{\"");
      }
    }
    return depth == 0 || Refuse(opened, "\"{\" is never closed");
  }

  std::string error;

 private:
  std::string_view _text;
  std::size_t _at = 0;
};

bool ScanPair(Scanner& scan, AttrSet::Pair& pair) {
  while (!scan.AtEnd() && (scan.Peek() == ' ' || scan.Peek() == '\n' || scan.Peek() == '\t')) {
    scan.Skip();
  }
  const std::size_t key_at = scan.At();
  if (!scan.SkipTo("=,{")) return false;
  pair.key = scan.From(key_at);
  if (pair.key.empty()) return scan.Refuse(key_at, "expected a key");
  if (scan.AtEnd() || scan.Peek() != '=') {
    return scan.Refuse(scan.At(), "expected \"=\" after the key");
  }
  scan.Skip();
  const std::size_t value_at = scan.At();
  // ToString() encloses a value that contains braces, so one level of nesting must stay free.
  const bool is_braced = !scan.AtEnd() && scan.Peek() == '{';
  if (!scan.SkipTo(",", is_braced ? 0 : 1)) return false;
  std::string_view value = scan.From(value_at);
  // In a value that is enclosed in braces, the first brace closes at the end.
  if (is_braced) {
    int depth = 0;
    std::size_t closes = 0;
    for (; closes < value.size(); ++closes) {
      if (value[closes] == '{') ++depth;
      if (value[closes] == '}' && --depth == 0) break;
    }
    if (closes + 1 != value.size()) {
      return scan.Refuse(value_at + closes + 1, "expected \",\" after \"}\"");
    }
    value = value.substr(1, value.size() - 2);
  }
  pair.value = value;
  return true;
}

bool ScanSet(std::string_view text, std::vector<AttrSet::Pair>& pairs, std::string& error) {
  Scanner scan(text);
  while (!scan.AtEnd()) {
    pairs.emplace_back();
    if (!ScanPair(scan, pairs.back())) break;
    if (scan.AtEnd()) return true;
    scan.Skip();  // the comma
    if (scan.AtEnd()) scan.Refuse(scan.At(), "expected a pair after \",\"");
  }
  error = scan.error;
  return error.empty();
}

bool CheckLength(const char* text, std::string& error) {
  if (text == nullptr) {
    error = "no text";
  } else if (strnlen(text, kMaxTextBytes + 1) > kMaxTextBytes) {
    error = "position 1048576: longer than 1 MiB";
  } else {
    error.clear();
  }
  return error.empty();
}

}  // namespace

// Out of line, so that a plug-in uses the host's versions.
AttrSet::AttrSet() = default;
AttrSet::AttrSet(const char* text) { Parse(text); }
AttrSet::~AttrSet() = default;
AttrSet::AttrSet(const AttrSet& other) = default;
AttrSet::AttrSet(AttrSet&& other) noexcept = default;
AttrSet& AttrSet::operator=(const AttrSet& other) = default;
AttrSet& AttrSet::operator=(AttrSet&& other) noexcept = default;

bool AttrSet::Parse(const char* text) {
  if (!CheckLength(text, _error)) return false;
  std::vector<Pair> scanned;
  if (!ScanSet(text, scanned, _error)) return false;
  _pairs.clear();
  _places.clear();
  for (Pair& pair : scanned) {
    const auto [place, is_new] = _places.try_emplace(pair.key, _pairs.size());
    if (is_new) {
      _pairs.push_back(std::move(pair));
    } else {
      _pairs[place->second].value = std::move(pair.value);
    }
  }
  return true;
}

bool AttrSet::Add(const char* key, const char* value) {
  _error.clear();
  if (key == nullptr || *key == '\0' || std::strpbrk(key, ",={}") != nullptr ||
      std::strchr(" \n\t", *key) != nullptr) {
    _error = "a key that cannot be written as text";
    return false;
  }
  if (value == nullptr) {
    _error = std::string(key) + ": no text";
    return false;
  }
  Scanner scan(value);
  if (!scan.SkipTo("", 1)) {
    _error = std::string(key) + ": " + scan.error;
    return false;
  }
  const auto [place, is_new] = _places.try_emplace(key, _pairs.size());
  if (is_new) {
    _pairs.push_back({key, value});
  } else {
    _pairs[place->second].value = value;
  }
  return true;
}

const char* AttrSet::Get(const char* key) const {
  if (key == nullptr) return nullptr;
  const auto place = _places.find(key);
  return place == _places.end() ? nullptr : _pairs[place->second].value.c_str();
}

bool AttrSet::Remove(const char* key) {
  if (key == nullptr) return false;
  const auto place = _places.find(key);
  if (place == _places.end()) return false;
  const std::size_t index = place->second;
  _places.erase(place);
  _pairs.erase(_pairs.begin() + static_cast<std::ptrdiff_t>(index));
  for (auto& [name, at] : _places) {
    if (at > index) --at;
  }
  return true;
}

std::string AttrSet::ToString(bool braced) const {
  std::string text = braced ? "{" : "";
  for (std::size_t i = 0; i < _pairs.size(); ++i) {
    const Pair& pair = _pairs[i];
    if (i > 0) text += ',';
    text += pair.key;
    text += '=';
    const bool wrap = pair.value.find_first_of(",={}") != std::string::npos;
    if (wrap) text += '{';
    text += pair.value;
    if (wrap) text += '}';
  }
  if (braced) text += '}';
  return text;
}

bool ParseLayout(const char* text, std::vector<LayoutElement>& elements, std::string& error) {
  if (!CheckLength(text, error)) return false;
  std::vector<LayoutElement> scanned;
  Scanner scan(text);
  for (;;) {
    const std::size_t begin = scan.At();
    if (!scan.SkipTo("+")) break;
    const std::string chunk(scan.From(begin));
    const std::size_t colon = chunk.find(':');
    LayoutElement element{chunk.substr(0, colon), {}};
    if (element.class_name.empty() ||
        element.class_name.find_first_of(",={}") != std::string::npos) {
      scan.Refuse(begin, "expected an element");
      break;
    }
    if (colon != std::string::npos && !element.params.Parse(chunk.c_str() + colon + 1)) {
      error = "element \"" + element.class_name + "\" at position " + std::to_string(begin) +
              ", in its parameters, " + element.params.Error();
      return false;
    }
    scanned.push_back(std::move(element));
    if (scan.AtEnd()) {
      elements = std::move(scanned);
      return true;
    }
    scan.Skip();  // the plus sign
  }
  error = scan.error;
  return false;
}

bool ConvertToImpl(const char* text, bool& out) {
  if (text == nullptr) return false;
  static constexpr struct {
    const char* word;
    bool meaning;
  } kWords[] = {{"true", true},   {"yes", true}, {"on", true},   {"1", true},
                {"false", false}, {"no", false}, {"off", false}, {"0", false}};
  for (const auto& row : kWords) {
    if (strcasecmp(text, row.word) != 0) continue;
    out = row.meaning;
    return true;
  }
  return false;
}

}  // namespace quill::base
