#include "quill/IClass.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <strings.h>

#include "Construction.h"

namespace quill::base {
namespace {

// Never destroyed: records are created by code of plug-ins and read until the very end.
std::mutex& RegistryMutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

std::list<IClass*>& Registry() {
  static auto* registry = new std::list<IClass*>;
  return *registry;
}

// A hold on each record of the registry.
std::unordered_map<const IClass*, std::shared_ptr<IClass>>& Holds() {
  static auto* holds = new std::unordered_map<const IClass*, std::shared_ptr<IClass>>;
  return *holds;
}

const char* ConstructorText(const std::type_info* type) {
  if (type == nullptr) return "?";
  if (*type == typeid(void(bool))) return "(bool pull)";
  return *type == typeid(void()) ? "()" : "(functions)";
}

// The first record of that name, under the registry's lock.
std::list<IClass*>::iterator PlaceOf(const char* name) {
  std::list<IClass*>& registry = Registry();
  if (name == nullptr) return registry.end();
  return std::find_if(registry.begin(), registry.end(),
                      [name](const IClass* record) { return record->Name() == name; });
}

}  // namespace

IClass::IClass(const char* name, std::initializer_list<IProperty*> properties)
    : _name(name == nullptr ? "" : name), _properties(properties) {}

IClass::~IClass() = default;

IClass& IClass::operator=(const IClass& other) {
  if (this == &other) return *this;
  _tag = other._tag;
  _tag_type = other._tag_type;
  _name = other._name;
  _properties = other._properties;
  _creator = other._creator;
  _object_test = other._object_test;
  _object_size = other._object_size;
  _object_type = other._object_type;
  _constructor_type = other._constructor_type;
  _base = other._base;
  _module = other._module;
  _vendor = other._vendor;
  _author = other._author;
  _extra = other._extra;
  _version = other._version;
  return *this;
}

IClass* IClass::Find(const char* name, bool exact) {
  if (name == nullptr) return nullptr;
  const std::lock_guard lock(RegistryMutex());
  for (IClass* record : Registry()) {
    if (record->_name == name) return record;
    if (!exact && strcasecmp(record->_name.c_str(), name) == 0) return record;
  }
  return nullptr;
}

IClass* IClass::Find(const char* name, std::list<IClass*>::iterator& place) {
  const std::lock_guard lock(RegistryMutex());
  place = PlaceOf(name);
  return place == Registry().end() ? nullptr : *place;
}

std::list<IClass*>& IClass::Globle() { return Registry(); }

std::vector<const IClass*> IClass::All() {
  const std::lock_guard lock(RegistryMutex());
  return {Registry().begin(), Registry().end()};
}

IClass* IClass::Register(IClass* record) {
  if (record == nullptr) return nullptr;
  const std::lock_guard lock(RegistryMutex());
  if (Holds().contains(record)) return record;
  // One that is entered again has holders already.
  auto hold = record->weak_from_this().lock();
  Holds().emplace(record, hold != nullptr ? hold : std::shared_ptr<IClass>(record));
  std::list<IClass*>& registry = Registry();
  const auto namesake =
      std::find_if(registry.rbegin(), registry.rend(),
                   [record](const IClass* other) { return other->_name == record->_name; });
  if (namesake != registry.rend()) {
    (*namesake)->_next_namesake.store(record, std::memory_order_release);
  }
  registry.push_back(record);
  return record;
}

bool IClass::UnRegister(const char* name) {
  std::shared_ptr<IClass> gone;  // released after the lock: a tag's destructor may use the registry
  const std::lock_guard lock(RegistryMutex());
  const auto place = PlaceOf(name);
  if (place == Registry().end()) return false;
  gone = std::move(Holds().extract(*place).mapped());
  Registry().erase(place);
  IClass* next = gone->_next_namesake.exchange(nullptr);
  for (IClass* record : Registry()) {
    IClass* self = gone.get();
    record->_next_namesake.compare_exchange_strong(self, next);
  }
  return true;
}

IClass& IClass::Init(const char* module, unsigned version, const char* vendor, const char* author,
                     const char* extra) {
  const auto text = [](const char* given) { return std::string(given == nullptr ? "" : given); };
  _module = text(module);
  _version = version;
  _vendor = text(vendor);
  _author = text(author);
  _extra = text(extra);
  return *this;
}

IClass& IClass::Tags(void* tag, const std::type_info* type,
                     const std::function<void(void*)>& free) {
  _tag = std::shared_ptr<void>(tag, [free](void* held) {
    if (held != nullptr && free) free(held);
  });
  _tag_type = type;
  return *this;
}

object* IClass::Construct(void* arguments) const {
  const Construction::Scope scope;
  try {
    return _creator(arguments);
  } catch (const std::exception& thrown) {
    stream::Fail("!_creator(arguments)", _name, ": ", thrown.what());
  } catch (...) {
    stream::Fail("!_creator(arguments)", _name, " throws");
  }
  return nullptr;
}

object* IClass::CreateObject(void* arguments) const {
  AttrSet none;
  return CreateObject(arguments, none, nullptr);
}

object* IClass::CreateObject(void* arguments, AttrSet& set, object* owner) const {
  if (stream::Failed(!_creator, "!_creator", "a record that creates nothing: ", _name)) {
    return nullptr;
  }
  if (stream::Failed(arguments == nullptr && !HasConstructor(typeid(void())), "!constructor",
                     "needs constructor arguments, which an alias binds: ", _name)) {
    return nullptr;
  }
  object* made = Construct(arguments);
  if (stream::Failed(made == nullptr, "!made", _name)) return nullptr;
  // One that was never registered belongs to the caller, who keeps it for as long as its objects.
  const auto held = weak_from_this().lock();
  made->_class = held != nullptr ? held : std::shared_ptr<const IClass>(held, this);
  made->_parent = owner;
  if (made->InitObject(set)) return made;
  made->_parent = nullptr;
  made->Release();
  return nullptr;
}

void IClass::print(ostream& out) const {
  ostream_string line;
  line << _name << ConstructorText(_constructor_type) << " " << _module << " "
       << static_cast<int>(_version >> 16 & 0xff) << "." << static_cast<int>(_version >> 8 & 0xff)
       << "." << static_cast<int>(_version & 0xff) << " " << _vendor << " " << _author;
  out.Write(line.str());
}

void IClass::print(ostream& out, object& instance) const {
  print(out);
  out.Write(_object_test && _object_test(instance) ? ": " : ": not ");
  out.Write(instance.ToString());
}

ostream& IClass::operator>>(ostream& out) const {
  print(out);
  return out;
}

}  // namespace quill::base
