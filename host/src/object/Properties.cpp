#include "quill/Properties.h"

#include "quill/IClass.h"

namespace quill::base {
namespace {

const std::vector<IProperty*>& ClassProperties(const IClass* record) {
  static const std::vector<IProperty*> kNone;
  return record == nullptr ? kNone : record->Properties();
}

}  // namespace

Object::Object(const char* name) : object(name) {}

bool Object::AddProperty(std::unique_ptr<IProperty> property) {
  if (property == nullptr || hasProperty(property->Name().c_str()) >= 0) return false;
  _own.push_back(std::move(property));
  return true;
}

bool Object::getPropertyNameList(std::vector<std::string>& names) const {
  names.clear();
  for (const IProperty* property : ClassProperties(Class())) names.push_back(property->Name());
  for (const auto& property : _own) names.push_back(property->Name());
  return true;
}

int Object::hasProperty(const char* name) const {
  if (name == nullptr) return -1;
  int id = 0;
  for (; const IProperty* property = getPropertyInfo(id); ++id) {
    if (property->Name() == name) return id;
  }
  return -1;
}

const IProperty* Object::getPropertyInfo(int id) const {
  if (id < 0) return nullptr;
  const auto& of_class = ClassProperties(Class());
  auto index = static_cast<std::size_t>(id);
  if (index < of_class.size()) return of_class[index];
  index -= of_class.size();
  return index < _own.size() ? _own[index].get() : nullptr;
}

bool Object::set(int id, const void* value, const std::type_info* type) {
  const IProperty* property = getPropertyInfo(id);
  return property != nullptr && value != nullptr && type != nullptr && property->Type() == *type &&
         property->Write(this, value);
}

bool Object::get(int id, void* value, const std::type_info* type) const {
  const IProperty* property = getPropertyInfo(id);
  return property != nullptr && value != nullptr && type != nullptr && property->Type() == *type &&
         property->Read(this, value);
}

bool Object::setString(int id, const char* text) {
  const IProperty* property = getPropertyInfo(id);
  return property != nullptr && text != nullptr && property->WriteText(this, text);
}

bool Object::getString(int id, std::string& text) const {
  const IProperty* property = getPropertyInfo(id);
  return property != nullptr && property->ReadText(this, text);
}

int Object::setoradd(const char* name, const char* text) {
  const int id = hasProperty(name);
  if (id >= 0) return setString(id, text) ? id : -1;
  if (name == nullptr || text == nullptr || !AddValue<std::string>(name, text)) return -1;
  return hasProperty(name);
}

bool Object::GetStr(const char* key, const char*& out) const {
  // What is a lasting text already needs no copy, and any thread may read it.
  if (Get(key, &out, &typeid(const char*))) return true;
  std::string text;
  if (!getString(hasProperty(key), text)) return false;
  for (auto& [name, lent] : _texts) {
    if (name != key) continue;
    lent = text;
    out = lent.c_str();
    return true;
  }
  out = _texts.emplace_back(key, text).second.c_str();
  return true;
}

bool Object::SetStr(const char* key, const char* value) {
  return setString(hasProperty(key), value);
}

bool Object::Get(const char* key, void* out, const std::type_info* type) const {
  return get(hasProperty(key), out, type);
}

bool Object::GetWithType(const char* key,
                         const std::function<void*(const std::type_info&)>& accept) const {
  const IProperty* property = getPropertyInfo(hasProperty(key));
  if (property == nullptr || !accept) return false;
  void* out = accept(property->Type());
  return out != nullptr && property->Read(this, out);
}

}  // namespace quill::base
