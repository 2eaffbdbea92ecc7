#include "Classes.h"

#include <algorithm>
#include <cctype>
#include <numeric>

#include "quill/Host.h"
#include "tessel/IH264Source.h"

#include "Console.h"

namespace tessel::tool {
namespace {

using api::streaming::IH264Source;
using api::streaming::common::IStreamOutput;
using quill::base::object;

struct KindRow {
  const char* text;
  bool (*is)(object& made);
};

template <typename Interface>
bool Is(object& made) {
  return dynamic_cast<Interface*>(&made) != nullptr;
}

// The first that fits counts.
constexpr KindRow kKinds[] = {
    {"H.264 video", &Is<IH264Source>},
    {"stream", &Is<IStreamOutput>},
};

std::string LowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return text;
}

// "ApiH264Source-dualos-cbrc-pull" is the short form "h264-pull".
std::string ShortForm(const std::string& name) {
  constexpr std::string_view kHead = "api";
  const std::string lower = LowerCase(name);
  const std::size_t kind_end = lower.find("source-");
  const std::size_t delivery = lower.rfind('-');
  if (!lower.starts_with(kHead) || kind_end == lower.npos) return "";
  return lower.substr(kHead.size(), kind_end - kHead.size()) + lower.substr(delivery);
}

// Least number of letters to insert, remove or replace.
std::size_t EditDistance(const std::string& from, const std::string& to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
      diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, replaced}));
    }
  }
  return row[to.size()];
}

bool LooksLike(const std::string& typed, const std::string& candidate) {
  if (candidate.empty()) return false;
  // A third of the letters may be wrong; a piece of three letters is worth a suggestion.
  const bool is_piece = typed.size() >= 3 && candidate.find(typed) != candidate.npos;
  return is_piece || EditDistance(typed, candidate) * 3 <= std::max(typed.size(), candidate.size());
}

std::string Listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

}  // namespace

bool IsCreatable(const IClass& record) {
  return record.ConstructorType() != nullptr && *record.ConstructorType() == typeid(void()) &&
         !IsOfHost(record);
}

bool IsOfHost(const IClass& record) { return record.Module() == "tesselhost"; }

std::string ConstructorText(const IClass& record) {
  const std::type_info* type = record.ConstructorType();
  if (type == nullptr) return "-";
  if (*type == typeid(void())) return "()";
  return *type == typeid(void(bool)) ? "(bool pull)" : "(functions)";
}

std::string VersionText(const IClass& record) {
  const unsigned version = record.Version();
  return Format("%u.%u.%u", version >> 16 & 0xff, version >> 8 & 0xff, version & 0xff);
}

std::vector<std::string> AliasesOf(const IClass& record) {
  std::vector<std::string> names;
  for (const IClass* other : quill::host::Classes()) {
    if (other->Base() == &record) names.push_back(other->Name());
  }
  return names;
}

const IClass* FindClass(const std::string& name, std::string& error) {
  if (const IClass* record = IClass::Find(name.c_str(), false)) return record;
  const std::string typed = LowerCase(name);
  std::vector<std::string> alike;
  for (const IClass* record : quill::host::Classes()) {
    const std::string short_form = ShortForm(record->Name());
    const bool is_meant = short_form == typed || short_form == typed + "-pull";
    if (is_meant && IsCreatable(*record)) return record;
    if (IsOfHost(*record)) continue;
    const std::string kind = short_form.substr(0, short_form.find('-'));
    if (LooksLike(typed, LowerCase(record->Name())) || LooksLike(typed, short_form) ||
        LooksLike(typed, kind)) {
      alike.push_back(record->Name());
    }
  }
  error = "no class " + Quoted(name) + "; ";
  error += alike.empty() ? "`tessel list` shows them all" : "did you mean " + Listed(alike) + "?";
  return nullptr;
}

const IClass* FindCreatable(const std::string& name, std::string& error) {
  const IClass* record = FindClass(name, error);
  if (record == nullptr || IsCreatable(*record)) return record;
  if (IsOfHost(*record)) {
    error = record->Name() + " is the host's own; `tessel list` shows what can be created";
    return nullptr;
  }
  const std::vector<std::string> aliases = AliasesOf(*record);
  error = record->Name() + " takes " + ConstructorText(*record);
  error += aliases.empty() ? " and cannot be created by name; `tessel list` shows what can"
                           : "; use " + Listed(aliases);
  return nullptr;
}

ClassTraits TraitsOf(const IClass& record) {
  ClassTraits traits;
  const quill::host::Handle<object> made(quill::host::CreateObject(record.Name().c_str(), ""));
  if (!made) return traits;
  for (const KindRow& row : kKinds) {
    if (!row.is(*made)) continue;
    traits.kind = row.text;
    break;
  }
  if (const auto* output = dynamic_cast<IStreamOutput*>(made.get())) {
    traits.delivery = output->IsSupportedPullFrame() ? "pull" : "push";
  }
  return traits;
}

}  // namespace tessel::tool
