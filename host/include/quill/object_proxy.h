// An object that stands in for another one.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "quill/object.h"

namespace quill::base {

// Forwards all property access to another object, which it borrows for its whole life.
class QUILL_PUBLIC object_proxy : public virtual object {
 public:
  explicit object_proxy(object& target) : object(target.Name()), _target(&target) {}

  using IParam::Get;
  bool GetStr(const char* key, const char*& out) const override;
  bool SetStr(const char* key, const char* value) override;
  bool Get(const char* key, void* out, const std::type_info* type) const override;
  bool GetWithType(const char* key,
                   const std::function<void*(const std::type_info&)>& accept) const override;
  bool getPropertyNameList(std::vector<std::string>& names) const override;
  int hasProperty(const char* name) const override;
  const IProperty* getPropertyInfo(int id) const override;
  bool set(int id, const void* value, const std::type_info* type) override;
  bool get(int id, void* value, const std::type_info* type) const override;
  bool setString(int id, const char* text) override;
  bool getString(int id, std::string& text) const override;
  int setoradd(const char* name, const char* text) override;

 private:
  object* _target;
};

}  // namespace quill::base
