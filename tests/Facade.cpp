// The contract between plug-in and host, symbol by symbol: the plug-in needs nothing of its host
// but the operations below and of the system nothing but the standard library, and the host offers
// each of these operations.
#include <array>
#include <set>

#include <dlfcn.h>

#include "Fixture.h"

namespace tessel::tests {
namespace {

// A class or namespace, and what it offers. Names of types in the operations stand without
// quill::base:: and quill::stream::. Operations that are pure virtual (IParam's, IMedia's) are
// reached through an object's table and need no symbol.
struct Offer {
  std::string scope;
  std::vector<std::string> operations;
};

const std::vector<Offer> kOffers = {
    {"quill::base::AttrSet",
     {"AttrSet()", "AttrSet(char const*)", "~AttrSet()", "operator=(AttrSet const&)",
      "Parse(char const*)", "Add(char const*, char const*)", "Get(char const*) const",
      "ToString(bool) const"}},
    {"quill::base::IAttributes",
     {"toString(std::string&) const", "fromString(char const*)", "ToString() const"}},
    {"quill::base::Factory", {"Globle()", "Run(char const*, AttrSet&)"}},
    {"quill::base::object",
     {"object(char const*)", "~object()",
      "Initialize(char const*, char const*, char const*, object*)", "InitObject(AttrSet&)",
      "initConfigure(AttrSet&)", "initSerialize(AttrSet&)", "create(AttrSet&) const",
      "configure(AttrSet&)"}},
    {"quill::base::object",
     {"addChild(object*)", "removeChild(object*)",
      "foreach(std::function<bool (object&)> const&) const", "layoutAdjust(AttrSet&)",
      "fromAttrSet(AttrSet const&)", "toAttrSet(AttrSet&) const", "operator>>(ostream&) const",
      "Clone() const", "sendMessage(Message&, Orient const&)",
      "receiveMessage(Message&, Orient const&)", "processMessage(Message&)", "Enable() const",
      "Enable(bool)", "getChild(int) const"}},
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
    {"quill::base::ObjectList", {"Delete(object*&, bool)"}},
    {"quill::base::IMessageProcesser",
     {"SendMessage(char const*, Orient const&, char const*)",
      "RegisterMessageProcessCallback(std::function<bool (Message&)> const&)"}},
    {"quill::base::Reference", {"Hold() const", "Release() const"}},
    {"quill::base::IClass",
     {"IClass(char const*, std::initializer_list<IProperty*>)", "~IClass()",
      "Find(char const*, bool)", "Find(char const*, std::_List_iterator<IClass*>&)", "Globle()",
      "Register(IClass*)", "UnRegister(char const*)",
      "Init(char const*, unsigned int, char const*, char const*, char const*)",
      "Tags(void*, std::type_info const*, std::function<void (void*)> const&)",
      "print(ostream&) const", "operator>>(ostream&) const", "operator=(IClass const&)"}},
    {"quill::base::ostream_string",
     {"operator<<(char const*)", "operator<<(long long)", "operator<<(void const*)"}},
    {"quill::base",
     {"ConvertToImpl(char const*, bool&)", "UniqueString()", "UniqueString(char const*, char)",
      "Hash(char const*)", "ReflectAdd(void (*)(char const*), int, char const*, char const*)"}},
    {"quill::stream", {"__dbg_couts", "__root_path_offset"}},
    {"quill::stream::IStatus",
     {"Open()", "Start()", "Pause()", "Resume()", "Stop()", "Close()", "StartToPause()",
      "StopFromPause()"}},
    {"quill::stream::IStatus",
     {"StatusUp()", "StatusDown()", "StatusUp(IStatus::Status)", "StatusDown(IStatus::Status)",
      "StatusChange(IStatus::Status)", "CanStatusUp() const", "CanStatusDown() const",
      "CurrStatus() const", "beforeStatusUp(IStatus::Status)", "afterStatusUp(IStatus::Status)",
      "beforeStatusDown(IStatus::Status)", "afterStatusDown(IStatus::Status)"}},
    {"quill::stream::Service",
     {"Service()", "~Service()", "Pause()", "Resume()", "Stop()", "Close()", "StatusUp()",
      "StatusDown()", "StatusUp(IStatus::Status)", "StatusDown(IStatus::Status)",
      "StatusChange(IStatus::Status)", "beforeStatusUp(IStatus::Status)",
      "beforeStatusDown(IStatus::Status)"}},
    {"quill::stream::Packet", {"Data() const", "Size() const", "IsKey() const"}},
    {"quill::stream::SharedMemory", {"~SharedMemory()"}},
    {"quill::stream::VBRC", {"VBRC(char const*)"}},
    {"tessel::dev::IAudioDevice", {"Microphone(char const*)"}},
};

// The lines that a shell command prints.
std::set<std::string> Output(const std::string& command) {
  const std::unique_ptr<std::FILE, decltype(&pclose)> pipe(popen(command.c_str(), "r"), &pclose);
  std::set<std::string> lines;
  std::array<char, 4096> line{};
  while (std::fgets(line.data(), line.size(), pipe.get()) != nullptr) {
    lines.insert(std::string(line.data()).substr(0, std::strcspn(line.data(), "\n")));
  }
  return lines;
}

// The host's names that a library shows to the loader: those that it is to find elsewhere
// ("--undefined-only"), or those that it defines ("--defined-only").
std::set<std::string> Symbols(const std::string& library, const std::string& which) {
  return Output("nm -DC --just-symbols " + which + " " + library +
                R"( | grep -E 'quill::|tessel::' |
    sed -E 's/^((non-)?virtual thunk to|vtable for|VTT for|typeinfo for|typeinfo name for) //
            s/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g
            s/\[abi:cxx11\]//g
            s/([(< ])quill::(base|stream)::/\1/g')");
}

TEST(Facade, PluginNeedsOnlyListedOperationsOfItsHost) {
  std::set<std::string> listed;
  for (const Offer& offer : kOffers) {
    listed.insert(offer.scope);
    for (const auto& operation : offer.operations) listed.insert(offer.scope + "::" + operation);
  }
  const std::set<std::string> needed = Symbols(TESSEL_PLUGIN, "--undefined-only");
  EXPECT_TRUE(needed.contains("quill::base::Factory::Globle()")) << "the library is read";
  for (const std::string& name : needed) EXPECT_TRUE(listed.contains(name)) << name;
}

TEST(Facade, HostOffersEachListedOperation) {
  Dl_info host = {};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&quill::host::LoadPlugin), &host), 0);
  const std::set<std::string> offered = Symbols(host.dli_fname, "--defined-only");
  for (const auto& [scope, operations] : kOffers) {
    for (const std::string& operation : operations) {
      EXPECT_TRUE(offered.contains(scope + "::" + operation)) << scope << "::" << operation;
    }
  }
}

TEST(Facade, PluginNeedsNoLibraryButTheStandardOnes) {
  const std::set<std::string> allowed = {"libstdc++", "libgcc_s", "libm", "libc",
                                         // of builds with sanitizers
                                         "libasan", "libubsan", "libtsan"};
  const std::set<std::string> needed =
      Output(R"(objdump -p )" TESSEL_PLUGIN R"( | sed -nE 's/^ *NEEDED *(.*)\.so.*/\1/p')");
  EXPECT_TRUE(needed.contains("libc")) << "the library is read";
  for (const std::string& name : needed) EXPECT_TRUE(allowed.contains(name)) << name;
}

}  // namespace
}  // namespace tessel::tests
