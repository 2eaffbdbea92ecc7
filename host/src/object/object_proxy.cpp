#include "quill/object_proxy.h"

namespace quill::base {

bool object_proxy::GetStr(const char* key, const char*& out) const {
  return _target->GetStr(key, out);
}
bool object_proxy::SetStr(const char* key, const char* value) {
  return _target->SetStr(key, value);
}
bool object_proxy::Get(const char* key, void* out, const std::type_info* type) const {
  return _target->Get(key, out, type);
}
bool object_proxy::GetWithType(const char* key,
                               const std::function<void*(const std::type_info&)>& accept) const {
  return _target->GetWithType(key, accept);
}
bool object_proxy::getPropertyNameList(std::vector<std::string>& names) const {
  return _target->getPropertyNameList(names);
}
int object_proxy::hasProperty(const char* name) const { return _target->hasProperty(name); }
const IProperty* object_proxy::getPropertyInfo(int id) const {
  return _target->getPropertyInfo(id);
}
bool object_proxy::set(int id, const void* value, const std::type_info* type) {
  return _target->set(id, value, type);
}
bool object_proxy::get(int id, void* value, const std::type_info* type) const {
  return _target->get(id, value, type);
}
bool object_proxy::setString(int id, const char* text) { return _target->setString(id, text); }
bool object_proxy::getString(int id, std::string& text) const {
  return _target->getString(id, text);
}
int object_proxy::setoradd(const char* name, const char* text) {
  return _target->setoradd(name, text);
}

}  // namespace quill::base
