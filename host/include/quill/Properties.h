// Object, the base of all classes with properties. A file Object.h beside object.h would be the
// same one on file systems that ignore case.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "quill/object.h"

namespace quill::base {

// An object with a property table: the properties of its class record first, then its own.
class QUILL_PUBLIC Object : public virtual object {
 public:
  explicit Object(const char* name = nullptr);

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

  // Adds a property of this object alone; false when the name is taken.
  bool AddProperty(std::unique_ptr<IProperty> property);
  template <typename T>
  bool AddValue(const char* name, T value) {
    return AddProperty(std::make_unique<TValueProperty<T>>(name, std::move(value)));
  }

 private:
  std::vector<std::unique_ptr<IProperty>> _own;
  mutable std::list<std::pair<std::string, std::string>> _texts;  // what GetStr() lends, by key
};

}  // namespace quill::base
