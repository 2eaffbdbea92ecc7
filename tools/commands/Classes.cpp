#include "Classes.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <numeric>
#include <sstream>

#include "quill/Host.h"
#include "tessel/IPhotography.h"
#include "tessel/IStreamOutput.h"
#include "tessel/IVideo.h"

#include "Console.h"
#include "DeviceClasses.h"
#include "SourceKinds.h"

namespace tessel::tool {
namespace {

using api::streaming::common::IStreamOutput;
using api::streaming::common::ITrigger;
using quill::base::object;

constexpr char kPull[] = "-pull";

std::string LowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return text;
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

std::string ShortName(const IClass& record) {
  constexpr std::string_view kHead = "api";
  constexpr std::string_view kSource = "source";
  if (std::string device = DeviceKind(record.Name()); !device.empty()) return device;
  const std::string lower = LowerCase(record.Name());
  const std::size_t kind_end = lower.find(kSource);
  if (!lower.starts_with(kHead) || kind_end == lower.npos || !IsCreatable(record)) return "";
  std::string text = lower.substr(kHead.size(), kind_end - kHead.size());
  std::string delivery;
  std::istringstream words(lower.substr(kind_end + kSource.size()));
  for (std::string word; std::getline(words, word, '-');) {
    // The plain source is of constant rate; "trigger" stands twice in some names.
    const bool is_plain = word.empty() || word == "dualos" || word == "cbrc" || word == "pull";
    if (is_plain || text.ends_with("-" + word)) continue;
    word == "push" ? delivery = "-push" : text += "-" + word;
  }
  return text + delivery;
}

const IClass* FindClass(const std::string& name, std::string& error) {
  if (const IClass* record = IClass::Find(name.c_str(), false)) return record;
  std::string typed = LowerCase(name);
  if (typed.ends_with(kPull)) typed.resize(typed.size() - std::size(kPull) + 1);
  std::vector<std::string> alike;
  for (const IClass* record : quill::host::Classes()) {
    const std::string short_name = ShortName(*record);
    if (!typed.empty() && short_name == typed) return record;
    if (IsOfHost(*record)) continue;
    const std::string kind = short_name.substr(0, short_name.find('-'));
    if (LooksLike(typed, LowerCase(record->Name())) || LooksLike(typed, short_name) ||
        LooksLike(typed, kind)) {
      alike.push_back(short_name.empty() ? record->Name() : short_name);
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
  if (const std::string device = DeviceKind(record.Name()); !device.empty()) {
    traits.kind = device;
    return traits;
  }
  const quill::host::Handle<object> made(quill::host::CreateObject(record.Name().c_str(), ""));
  if (!made) return traits;
  const SourceKind* kind = KindOf(*made, record.Name());
  const auto* trigger = dynamic_cast<ITrigger*>(made.get());
  if (kind != nullptr) traits.kind = kind->text;
  if (dynamic_cast<api::streaming::IPhotography*>(made.get()) != nullptr) {
    traits.kind = "JPEG files, one a snapshot";
  }
  if (trigger != nullptr && trigger->IsSupportSingleFrameTrigger()) traits.kind += ", triggered";
  if (const auto* output = dynamic_cast<IStreamOutput*>(made.get())) {
    if (kind == nullptr) traits.kind = "stream";
    traits.delivery = output->IsSupportedPullFrame() ? "pull" : "push";
  }
  return traits;
}

}  // namespace tessel::tool
