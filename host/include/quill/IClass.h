// The class registry: what can be created by name.
#pragma once

#include <atomic>
#include <functional>
#include <initializer_list>
#include <list>
#include <memory>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include "quill/Debug.h"
#include "quill/Properties.h"

namespace quill::base {

// The base of all that creates objects.
class QUILL_PUBLIC IFactoryHelper {
 public:
  virtual ~IFactoryHelper() = default;
};

// One class record. The registry holds the records entered into it; aliases hold the record that
// they bind, and objects the record that they were made from. An unregistered record lives until
// the last of these is gone. Static operations: any thread; the registry has a lock.
class QUILL_PUBLIC IClass : public IFactoryHelper, public std::enable_shared_from_this<IClass> {
 public:
  using Creator = std::function<object*(void* arguments)>;
  using ObjectTest = std::function<bool(object&)>;

  // A record that creates nothing yet. `properties` are borrowed for its life; null names it "".
  IClass(const char* name, std::initializer_list<IProperty*> properties);
  ~IClass() override;
  IClass(const IClass&) = delete;
  // Copies everything; the tag is shared.
  IClass& operator=(const IClass& other);

  // The first record of that name, or null; borrowed until it is unregistered. `exact` false also
  // takes a name that differs in ASCII case only.
  static IClass* Find(const char* name, bool exact);
  // The first record of that exact name; `place` becomes its position, or the list's end.
  static IClass* Find(const char* name, std::list<IClass*>::iterator& place);
  // The registry itself, to be walked while no class is registered; and a copy, for any time.
  static std::list<IClass*>& Globle();
  static std::vector<const IClass*> All();
  // Enters a record, which the registry then holds. Null is ignored; a record entered before
  // keeps its place.
  static IClass* Register(IClass* record);
  // Removes the first record of that name. False when there is none.
  static bool UnRegister(const char* name);

  // Fills the metadata; null leaves a text empty.
  IClass& Init(const char* module, unsigned version, const char* vendor, const char* author,
               const char* extra);
  // Attaches a tag of type `type`, freed with `free` when no record has it any more. Records that
  // bind this one keep the tag they have.
  IClass& Tags(void* tag, const std::type_info* type, const std::function<void(void*)>& free);
  // The tag as a `T`, or null. Borrowed for the record's life.
  template <typename T>
  const T* Tag() const {
    return _tag != nullptr && _tag_type != nullptr && *_tag_type == typeid(T)
               ? static_cast<const T*>(_tag.get())
               : nullptr;
  }

  // A new object, configured, held by the caller. `arguments` points to the constructor's
  // arguments: the value itself for one argument, a std::tuple for more, ignored for none. Null,
  // and logged, when the record has no creation function, the constructor needs arguments and gets
  // none, or the object cannot be configured.
  object* CreateObject(void* arguments) const;
  // The same, configured with `set`. The object knows its owner from the start, as it may send
  // messages while it is configured; the caller enters it among the owner's children.
  object* CreateObject(void* arguments, AttrSet& set, object* owner) const;

  // One line: name, constructor, metadata.
  void print(ostream& out) const;
  // The same, and whether `instance` is of this class.
  void print(ostream& out, object& instance) const;
  ostream& operator>>(ostream& out) const;

  const std::string& Name() const { return _name; }
  const std::string& Module() const { return _module; }
  unsigned Version() const { return _version; }  // major, minor, patch in successive bytes
  const std::string& Vendor() const { return _vendor; }
  const std::string& Author() const { return _author; }
  const std::vector<IProperty*>& Properties() const { return _properties; }
  std::size_t ObjectSize() const { return _object_size; }
  const std::type_info* ObjectType() const { return _object_type; }
  // Null for a record that creates nothing.
  const std::type_info* ConstructorType() const { return _constructor_type; }
  bool HasConstructor(const std::type_info& type) const {
    return _constructor_type != nullptr && *_constructor_type == type;
  }
  // For an alias: the record it binds; null otherwise.
  const IClass* Base() const { return _base.get(); }

 protected:
  void RestoreName(const std::string& name) { _name = name; }
  // The next record entered under the name of `record`, or null.
  static IClass* NextNamesake(const IClass& record) {
    return record._next_namesake.load(std::memory_order_acquire);
  }
  // What `record` constructs its objects with; empty where it creates nothing.
  static const Creator& CreatorOf(const IClass& record) { return record._creator; }

  Creator _creator;
  ObjectTest _object_test;
  std::size_t _object_size = 0;
  const std::type_info* _object_type = nullptr;
  const std::type_info* _constructor_type = nullptr;
  std::shared_ptr<const IClass> _base;

 private:
  object* Construct(void* arguments) const;

  // Set, when a namesake is entered, under the registry's lock; pairs with NextNamesake().
  std::atomic<IClass*> _next_namesake{nullptr};
  std::string _name;
  std::vector<IProperty*> _properties;
  std::string _module;
  std::string _vendor;
  std::string _author;
  std::string _extra;
  unsigned _version = 0;
  std::shared_ptr<void> _tag;
  const std::type_info* _tag_type = nullptr;
};

// How a record's creation function finds the arguments behind its untyped pointer.
template <typename... Args>
struct ConstructorArguments {
  using Type = std::tuple<Args...>;
  template <typename Class>
  static object* Construct(void* arguments) {
    return std::apply([](const Args&... each) -> object* { return new Class(each...); },
                      *static_cast<Type*>(arguments));
  }
};
template <typename Arg>
struct ConstructorArguments<Arg> {
  using Type = Arg;
  template <typename Class>
  static object* Construct(void* arguments) {
    return new Class(*static_cast<Arg*>(arguments));
  }
};
template <>
struct ConstructorArguments<> {
  template <typename Class>
  static object* Construct(void*) {
    return new Class();
  }
};

// A record of a class whose constructor takes `Args`.
template <typename... Args>
class TClass : public IClass {
 public:
  using IClass::IClass;
  using IClass::operator=;

  // Makes this a record of `Class`.
  template <typename Class>
  TClass& Describe() {
    _object_test = [](object& instance) { return dynamic_cast<Class*>(&instance) != nullptr; };
    _creator = &ConstructorArguments<Args...>::template Construct<Class>;
    _object_size = sizeof(Class);
    _object_type = &typeid(Class);
    _constructor_type = &typeid(void(Args...));
    return *this;
  }

  // Enters `Class` under `name`, or logs that the name is taken and returns the record found.
  template <typename Class>
  static IClass* Enter(const char* name) {
    IClass* found = IClass::Find(name, true);
    if (found != nullptr) {
      stream::Fail({"!cl", "base/reflect/TClass", __LINE__, "Register"}, "class existed:", name);
      return found;
    }
    auto* record = new TClass(name, {});
    record->template Describe<Class>();
    return IClass::Register(record);
  }

  // Enters an alias of the class `base_name` with its constructor arguments bound. A taken name is
  // logged and the record found returned; null when there is no name or no such class.
  template <typename... Bound>
  static IClass* Register(const char* name, const char* base_name, Bound... bound) {
    static_assert(sizeof...(Args) == 0, "an alias is created without arguments");
    if (stream::Failed(name == nullptr, {"!name", "base/reflect/TClass", __LINE__, "Register"})) {
      return nullptr;
    }
    IClass* found = IClass::Find(name, true);
    if (found != nullptr) {
      stream::Fail({"!cl", "base/reflect/TClass", __LINE__, "Register"}, "class existed:", name);
      return found;
    }
    auto record = std::make_unique<TClass<>>(name, std::initializer_list<IProperty*>{});
    if (!record->template init<Bound...>(base_name, std::move(bound)...)) return nullptr;
    return IClass::Register(record.release());
  }

  // Turns this record into an alias of the class `base_name` that takes `Bound`.
  template <typename... Bound>
  bool init(const char* base_name, Bound&&... bound) {
    IClass* found = IClass::Find(base_name, true);
    while (found != nullptr && !found->HasConstructor(typeid(void(Bound...)))) {
      found = NextNamesake(*found);
    }
    const std::shared_ptr<const IClass> base =
        found == nullptr ? nullptr : found->weak_from_this().lock();
    if (stream::Failed(base == nullptr, {"!cl", "base/reflect/TClass", __LINE__, "init"})) {
      return false;
    }
    const std::string own_name = Name();
    IClass::operator=(*base);
    RestoreName(own_name);
    _base = base;
    _constructor_type = &typeid(void());
    using Pack = typename ConstructorArguments<std::remove_cvref_t<Bound>...>::Type;
    // The arguments are copied for each object: the creation function may take them over.
    _creator = [base, pack = Pack(std::forward<Bound>(bound)...)](void*) -> object* {
      Pack copy = pack;
      const Creator& create = CreatorOf(*base);
      return create ? create(&copy) : nullptr;
    };
    return true;
  }
};

}  // namespace quill::base
