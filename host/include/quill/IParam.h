// Named parameters of an object, with run-time type checks, and the descriptors behind them.
#pragma once

#include <functional>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "quill/AttrSet.h"
#include "quill/ostream_string.h"

namespace quill::base {

class object;

// Client's thread, unless the object says otherwise.
class QUILL_PUBLIC IParam {
 public:
  virtual ~IParam() = default;

  // The parameter as text, borrowed until it is read again. False when it is unknown or has no
  // text.
  virtual bool GetStr(const char* key, const char*& out) const = 0;
  // False when the parameter is unknown, read-only, or refuses the text.
  virtual bool SetStr(const char* key, const char* value) = 0;
  // Copies a parameter of exactly `type` into `out`. False when it is unknown or of another type;
  // `out` then keeps its value.
  virtual bool Get(const char* key, void* out, const std::type_info* type) const = 0;
  // Shows `accept` the type of the parameter; reads into what `accept` returns, unless that is
  // null.
  virtual bool GetWithType(const char* key,
                           const std::function<void*(const std::type_info&)>& accept) const = 0;

  template <typename T>
  bool Get(const char* key, T& out) const {
    return Get(key, &out, &typeid(T));
  }
  // An integer of whatever type the parameter has, brought to `T`. False when it is unknown, no
  // integer, or outside the range of `T`; `out` then keeps its value.
  template <typename T>
  bool GetIntT(const char* key, T& out) const;
};

template <typename T>
bool IParam::GetIntT(const char* key, T& out) const {
  const auto as = [&](auto value) {
    if (!Get(key, value) || !std::in_range<T>(value)) return false;
    out = static_cast<T>(value);
    return true;
  };
  return as(int{}) || as(unsigned{}) || as(0L) || as(0UL) || as(0LL) || as(0ULL);
}

// Describes one property of a class or of one object.
class QUILL_PUBLIC IProperty {
 public:
  IProperty(const char* name, const std::type_info& type) : _name(name), _type(&type) {}
  virtual ~IProperty() = default;
  IProperty(const IProperty&) = delete;
  IProperty& operator=(const IProperty&) = delete;

  const std::string& Name() const { return _name; }
  const std::type_info& Type() const { return *_type; }

  // `value` points to a Type(). False when the owner refuses.
  virtual bool Read(const object* owner, void* value) const = 0;
  virtual bool Write(object* owner, const void* value) const = 0;
  virtual bool ReadText(const object* owner, std::string& text) const = 0;
  virtual bool WriteText(object* owner, const char* text) const = 0;
  virtual bool IsWritable() const = 0;

 private:
  std::string _name;
  const std::type_info* _type;
};

// A property of type `T` behind two functions; an empty setter makes it read-only.
template <typename T>
class TProperty : public IProperty {
 public:
  using Getter = std::function<bool(const object*, T&)>;
  using Setter = std::function<bool(object*, const T&)>;

  TProperty(const char* name, Getter getter, Setter setter = nullptr)
      : IProperty(name, typeid(T)), _getter(std::move(getter)), _setter(std::move(setter)) {}

  bool Read(const object* owner, void* value) const override {
    return _getter && _getter(owner, *static_cast<T*>(value));
  }
  bool Write(object* owner, const void* value) const override {
    return _setter && _setter(owner, *static_cast<const T*>(value));
  }
  bool ReadText(const object* owner, std::string& text) const override {
    T value{};
    if (!Read(owner, &value)) return false;
    if constexpr (std::is_same_v<T, std::string>) {
      text = value;
    } else if constexpr (std::is_same_v<T, bool>) {
      text = value ? "true" : "false";
    } else if constexpr (std::is_arithmetic_v<T>) {
      text = std::to_string(value);
    } else if constexpr (std::is_same_v<T, const char*>) {
      text = value == nullptr ? "" : value;
    } else if constexpr (std::is_same_v<T, void*>) {
      text = ToString<const void*>(value);
    } else {
      return false;  // functions have no text
    }
    return true;
  }
  bool WriteText(object* owner, const char* text) const override {
    if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, bool> ||
                  std::is_same_v<T, int> || std::is_same_v<T, unsigned> ||
                  std::is_same_v<T, long long> || std::is_same_v<T, unsigned long long>) {
      T value{};
      return ConvertToImpl(text, value) && Write(owner, &value);
    } else {
      return false;
    }
  }
  bool IsWritable() const override { return static_cast<bool>(_setter); }

 private:
  Getter _getter;
  Setter _setter;
};

// A property that keeps its value itself.
template <typename T>
class TValueProperty : public TProperty<T> {
 public:
  TValueProperty(const char* name, T value)
      : TProperty<T>(
            name,
            [this](const object*, T& out) {
              out = _value;
              return true;
            },
            [this](object*, const T& in) {
              _value = in;
              return true;
            }),
        _value(std::move(value)) {}

 private:
  T _value;
};

}  // namespace quill::base
