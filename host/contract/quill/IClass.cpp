#include "quill/IClass.h"

#include <algorithm>
#include <memory>
#include <mutex>

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

const char* ConstructorText(const std::type_info* type) {
  if (type == nullptr) return "?";
  if (*type == typeid(void(bool))) return "(bool pull)";
  return *type == typeid(void()) ? "()" : "(functions)";
}

}  // namespace

IClass::IClass(const char* name, std::initializer_list<IProperty*> properties)
    : _name(name), _properties(properties) {}

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
  std::list<IClass*>& registry = Registry();
  place = place == registry.end() ? registry.begin() : std::next(place);
  place = std::find_if(place, registry.end(),
                       [name](const IClass* record) { return record->_name == name; });
  return place == registry.end() ? nullptr : *place;
}

std::list<IClass*>& IClass::Globle() { return Registry(); }

std::vector<const IClass*> IClass::All() {
  const std::lock_guard lock(RegistryMutex());
  return {Registry().begin(), Registry().end()};
}

IClass* IClass::Register(IClass* record) {
  if (record == nullptr) return nullptr;
  const std::lock_guard lock(RegistryMutex());
  Registry().push_back(record);
  return record;
}

bool IClass::UnRegister(const char* name) {
  std::unique_ptr<IClass> gone;  // destroyed after the lock: a tag's destructor may come back here
  const std::lock_guard lock(RegistryMutex());
  std::list<IClass*>& registry = Registry();
  const auto place = std::find_if(registry.begin(), registry.end(),
                                  [name](const IClass* record) { return record->_name == name; });
  if (place == registry.end()) return false;
  gone.reset(*place);
  registry.erase(place);
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

object* IClass::CreateObject(void* arguments) const {
  if (!_creator) return nullptr;
  const Construction::Scope scope;
  object* made = _creator(arguments);
  if (made != nullptr) made->_class = this;
  return made;
}

void IClass::print(ostream& out) const {
  out << _name << ConstructorText(_constructor_type) << " " << _module << " "
      << static_cast<int>(_version >> 16 & 0xff) << "." << static_cast<int>(_version >> 8 & 0xff)
      << "." << static_cast<int>(_version & 0xff) << " " << _vendor << " " << _author;
}

void IClass::print(ostream& out, object& instance) const {
  print(out);
  out << (_object_test && _object_test(instance) ? ": " : ": not ") << instance.ToString();
}

ostream& IClass::operator>>(ostream& out) const {
  print(out);
  return out;
}

}  // namespace quill::base
