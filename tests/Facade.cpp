// The contract between plug-in and host, symbol by symbol: a plug-in needs nothing of its host but
// the operations below, and a host offers each of them.
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>

#include "Fixture.h"

namespace tessel::tests {
namespace {

// One class, namespace or pair of classes ("A|B": either of them has it), and what it offers; the
// "." of a row without a class stands for the namespace. Operations that are pure virtual
// (IParam's, IMedia's) are reached through an object's table and need no symbol.
struct Offer {
  const char* scope;
  std::vector<const char*> operations;
};

const std::vector<Offer> kOffers = {
    {"quill::base::AttrSet",
     {"AttrSet()", "AttrSet(char const*)", "~AttrSet()", "operator=(quill::base::AttrSet const&)",
      "Parse(char const*)", "Add(char const*, char const*)", "Get(char const*) const",
      "ToString(bool) const"}},
    {"quill::base::IAttributes",
     {"toString(std::string&) const", "fromString(char const*)", "ToString() const"}},
    {"quill::base::Factory", {"Globle()", "Run(char const*, quill::base::AttrSet&)"}},
    {"quill::base::object",
     {"object(char const*)",
      "~object()",
      "Initialize(char const*, char const*, char const*, quill::base::object*)",
      "InitObject(quill::base::AttrSet&)",
      "initConfigure(quill::base::AttrSet&)",
      "initSerialize(quill::base::AttrSet&)",
      "create(quill::base::AttrSet&) const",
      "configure(quill::base::AttrSet&)",
      "addChild(quill::base::object*)",
      "removeChild(quill::base::object*)",
      "foreach(std::function<bool (quill::base::object&)> const&) const",
      "layoutAdjust(quill::base::AttrSet&)",
      "fromAttrSet(quill::base::AttrSet const&)",
      "toAttrSet(quill::base::AttrSet&) const",
      "operator>>(quill::base::ostream&) const",
      "Clone() const",
      "sendMessage(quill::base::Message&, quill::base::Orient const&)",
      "receiveMessage(quill::base::Message&, quill::base::Orient const&)",
      "processMessage(quill::base::Message&)",
      "Enable() const",
      "Enable(bool)",
      "getChild(int) const"}},
    {"quill::base::Object",
     {"Object(char const*)", "GetStr(char const*, char const*&) const",
      "SetStr(char const*, char const*)", "Get(char const*, void*, std::type_info const*) const",
      "GetWithType(char const*, std::function<void* (std::type_info const&)> const&) const",
      "getPropertyNameList(std::vector<std::string, std::allocator<std::string > >&) const",
      "hasProperty(char const*) const", "getPropertyInfo(int) const",
      "set(int, void const*, std::type_info const*)",
      "get(int, void*, std::type_info const*) const", "setoradd(char const*, char const*)",
      "getString(int, std::string&) const", "setString(int, char const*)"}},
    {"quill::base::object_name", {"ID() const", "Order() const", "Name(char const*)"}},
    {"quill::base::object_keywords", {"Name(char const*)"}},
    {"quill::base::ObjectList", {"Delete(quill::base::object*&, bool)"}},
    {"quill::base::IMessageProcesser",
     {"SendMessage(char const*, quill::base::Orient const&, char const*)",
      "RegisterMessageProcessCallback(std::function<bool (quill::base::Message&)> const&)"}},
    {"quill::base::Reference", {"Hold() const", "Release() const"}},
    {"quill::base::IClass",
     {"IClass(char const*, std::initializer_list<quill::base::IProperty*>)", "~IClass()",
      "Find(char const*, bool)", "Find(char const*, std::_List_iterator<quill::base::IClass*>&)",
      "Globle()", "Register(quill::base::IClass*)", "UnRegister(char const*)",
      "Init(char const*, unsigned int, char const*, char const*, char const*)",
      "Tags(void*, std::type_info const*, std::function<void (void*)> const&)",
      "print(quill::base::ostream&) const", "operator>>(quill::base::ostream&) const",
      "operator=(quill::base::IClass const&)"}},
    {"quill::base::ostream_string",
     {"operator<<(char const*)", "operator<<(long long)", "operator<<(void const*)"}},
    {"quill::base",
     {"ConvertToImpl(char const*, bool&)", "UniqueString()", "UniqueString(char const*, char)",
      "Hash(char const*)", "ReflectAdd(void (*)(char const*), int, char const*, char const*)"}},
    {"quill::stream", {"__dbg_couts", "__root_path_offset"}},
    {"quill::stream::IStatus|quill::stream::Service",
     {"Open()",
      "Start()",
      "Pause()",
      "Resume()",
      "Stop()",
      "Close()",
      "StartToPause()",
      "StopFromPause()",
      "StatusUp()",
      "StatusDown()",
      "StatusUp(quill::stream::IStatus::Status)",
      "StatusDown(quill::stream::IStatus::Status)",
      "StatusChange(quill::stream::IStatus::Status)",
      "CanStatusUp() const",
      "CanStatusDown() const",
      "CurrStatus() const",
      "beforeStatusUp(quill::stream::IStatus::Status)",
      "afterStatusUp(quill::stream::IStatus::Status)",
      "beforeStatusDown(quill::stream::IStatus::Status)",
      "afterStatusDown(quill::stream::IStatus::Status)"}},
    {"quill::stream::Service",
     {"Service()", "~Service()", "beforeStatusUp(quill::stream::IStatus::Status)",
      "beforeStatusDown(quill::stream::IStatus::Status)"}},
    {"quill::stream::Packet", {"Data() const", "Size() const", "IsKey() const"}},
    {"quill::stream::SharedMemory", {"~SharedMemory()"}},
    {"quill::stream::VBRC", {"VBRC(char const*)"}},
    {"tessel::dev::IAudioDevice", {"Microphone(char const*)"}},
};

// A C++ name as the table writes it; what is no C++ name as it stands.
std::string Readable(const char* symbol) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> plain(
      abi::__cxa_demangle(symbol, nullptr, nullptr, &status), &std::free);
  std::string name = plain == nullptr ? symbol : plain.get();
  const std::pair<std::string, std::string> kWords[] = {
      {"std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >",
       "std::string"},
      {"[abi:cxx11]", ""}};
  for (const auto& [word, plainer] : kWords) {
    for (std::size_t at = 0; (at = name.find(word)) != std::string::npos;) {
      name.replace(at, word.size(), plainer);
    }
  }
  return name;
}

// The names that a shared library shows to the loader: those it defines, or those it needs.
std::set<std::string> Symbols(const std::string& path, bool defined) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  const auto at = [&bytes]<typename T>(std::size_t offset, T record) {
    std::memcpy(&record, bytes.data() + offset, sizeof record);
    return record;
  };
  std::set<std::string> names;
  const auto head = at(0, Elf64_Ehdr());
  const auto section = [&](std::size_t index) {
    return at(head.e_shoff + index * sizeof(Elf64_Shdr), Elf64_Shdr());
  };
  for (std::size_t i = 0; i < head.e_shnum; ++i) {
    const Elf64_Shdr table = section(i);
    if (table.sh_type != SHT_DYNSYM) continue;
    const std::size_t texts = section(table.sh_link).sh_offset;
    for (std::size_t offset = 0; offset < table.sh_size; offset += sizeof(Elf64_Sym)) {
      const auto symbol = at(table.sh_offset + offset, Elf64_Sym());
      if ((symbol.st_shndx != SHN_UNDEF) == defined) {
        names.insert(Readable(bytes.data() + texts + symbol.st_name));
      }
    }
  }
  return names;
}

std::vector<std::string> Scopes(const Offer& offer) {
  const std::string scope = offer.scope;
  const std::size_t bar = scope.find('|');
  if (bar == std::string::npos) return {scope};
  return {scope.substr(0, bar), scope.substr(bar + 1)};
}

// Without what the compiler puts around an operation or a class of the table.
std::string Bare(std::string name) {
  for (const std::string prefix : {"non-virtual thunk to ", "virtual thunk to ", "vtable for ",
                                   "typeinfo for ", "typeinfo name for ", "VTT for "}) {
    if (name.starts_with(prefix)) return name.substr(prefix.size());
  }
  return name;
}

TEST(Facade, ThePluginNeedsListedOperationsOnly) {
  std::set<std::string> listed;
  for (const Offer& offer : kOffers) {
    for (const std::string& scope : Scopes(offer)) {
      listed.insert(scope);
      for (const char* operation : offer.operations) listed.insert(scope + "::" + operation);
    }
  }
  const std::set<std::string> needed = Symbols(TESSEL_PLUGIN, false);
  EXPECT_TRUE(needed.contains("quill::base::Factory::Globle()")) << "the library is read";
  for (const std::string& name : needed) {
    const bool is_ours =
        name.find("quill::") != std::string::npos || name.find("tessel::") != std::string::npos;
    EXPECT_TRUE(!is_ours || listed.contains(Bare(name))) << name;
  }
}

TEST(Facade, TheHostOffersEachListedOperation) {
  Dl_info host = {};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&quill::host::LoadPlugin), &host), 0);
  const std::set<std::string> offered = Symbols(host.dli_fname, true);
  for (const Offer& offer : kOffers) {
    const auto scopes = Scopes(offer);
    for (const std::string operation : offer.operations) {
      const bool is_offered = std::any_of(scopes.begin(), scopes.end(), [&](std::string scope) {
        return offered.contains(scope.append("::").append(operation));
      });
      EXPECT_TRUE(is_offered) << scopes.back() << "::" << operation;
    }
  }
}

}  // namespace
}  // namespace tessel::tests
