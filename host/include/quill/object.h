// Host objects: counted, named, configurable by text, with children and messages.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "quill/AttrSet.h"
#include "quill/IAttributes.h"
#include "quill/IMessageProcesser.h"
#include "quill/IParam.h"
#include "quill/ObjectList.h"
#include "quill/ObjectNames.h"
#include "quill/Reference.h"

namespace quill::base {

class Callbacks;
class IClass;

// The lower interface of every host object; a virtual base of all of them, so it is built first and
// destroyed last. Client's thread, unless a class says otherwise.
class QUILL_PUBLIC object : public Reference,
                            public virtual IParam,
                            public IAttributes,
                            public IMessageProcesser,
                            public object_name,
                            public object_keywords {
 public:
  explicit object(const char* name = nullptr);

  using IParam::Get;
  using object_name::Name;

  // Name, one keyword, one note (each may be null) and the owner to be entered under, if any.
  bool Initialize(const char* name, const char* keyword, const char* note, object* parent);
  // First configuration: initConfigure(), initSerialize(), then configure(). False, and logged,
  // when one of them refuses, or a pair is left that none of them has taken out of `set`.
  bool InitObject(AttrSet& set);
  bool initConfigure(AttrSet& set);  // takes "name", "keyword" and "enable" out of `set`
  bool initSerialize(
      AttrSet& set);  // applies and takes out the pairs that name a writable property
  // Applies the remaining pairs, and takes out those that it has read; called once by the host
  // after construction. Overrides need not call this.
  virtual bool configure(AttrSet& set);

  // Creates a child from a description: "type" names its class, the other pairs configure it. The
  // child is entered with addChild() and belongs to this object. Null, with a line in the log that
  // says why, when anything fails.
  object* create(AttrSet& description) const;
  virtual bool addChild(object* child);
  virtual bool removeChild(object* child);
  // Visits the children as ObjectListSafe does.
  bool foreach (const std::function<bool(object&)>& visit) const;
  // Configures children by name: `name={pairs},...`. False when one is unknown or refuses.
  bool layoutAdjust(AttrSet& set);
  object* Parent() const { return _parent.load(std::memory_order_acquire); }

  // Properties as text, with name, keywords and enable flag; fromAttrSet() takes all or nothing.
  bool fromAttrSet(const AttrSet& set) override;
  bool toAttrSet(AttrSet& set) const override;
  ostream& operator>>(ostream& out) const;
  // A new object of the same class with the same properties, configured, held by the caller; null
  // when it was not made from a class record.
  object* Clone() const;

  bool sendMessage(Message& message, const Orient& orient);
  bool receiveMessage(Message& message, const Orient& orient);  // this one, then on along `orient`
  virtual bool processMessage(Message& message);                // this one alone

  bool Enable() const;  // any thread
  void Enable(bool enabled);
  // The flag itself; a holder may outlive the object.
  std::shared_ptr<const std::atomic<bool>> EnableFlag() const { return _enabled; }

  // Host only: the count of running callbacks of this object; null when it counts none.
  virtual std::shared_ptr<Callbacks> GetCallbacks() const { return nullptr; }

  // The record it was made from, or null; borrowed for the object's life.
  const IClass* Class() const { return _class.get(); }
  const char* Note() const { return _note.c_str(); }

  // The property table, by number; numbers run from 0 without a gap.
  virtual bool getPropertyNameList(std::vector<std::string>& names) const = 0;
  virtual int hasProperty(const char* name) const = 0;  // its number, or -1
  virtual const IProperty* getPropertyInfo(int id) const = 0;
  virtual bool set(int id, const void* value, const std::type_info* type) = 0;
  bool Set(const char* key, const void* value, const std::type_info* type) {
    return set(hasProperty(key), value, type);
  }
  virtual bool get(int id, void* value, const std::type_info* type) const = 0;
  virtual bool setString(int id, const char* text) = 0;
  virtual bool getString(int id, std::string& text) const = 0;
  // Writes a text property, which is added to this object if it has none of that name. Returns its
  // number, or -1 when it refuses the text.
  virtual int setoradd(const char* name, const char* text) = 0;
  object* getChild(int order) const;

  // Runs when the last hold is given back, before any destructor.
  class Finisher {
   public:
    virtual void Finish() = 0;

   protected:
    ~Finisher() = default;
  };

 protected:
  ~object() override;
  void SetFinisher(Finisher& finisher) { _finisher = &finisher; }  // borrows for the object's life
  void LastReleased() override {
    // Held meanwhile: Finish() may call what holds and releases the object.
    if (Finisher* finisher = std::exchange(_finisher, nullptr)) {
      Hold();
      finisher->Finish();
      return Release();
    }
    delete this;
  }
  ObjectList& Children() const { return *_children; }

 private:
  friend class IClass;
  friend class IMessageProcesser;
  friend class ObjectList;
  bool Dispatch(Message& message, const Orient& orient);
  bool Send(Message& message, const Orient& orient);
  bool Forward(Message& message, const Orient& orient);
  bool VisitSiblings(bool behind, const std::function<bool(object&)>& visit) const;

  std::unique_ptr<ObjectList> _children;
  std::atomic<object*> _parent{nullptr};  // the message thread reads it too
  Finisher* _finisher = nullptr;
  std::shared_ptr<const IClass> _class;
  std::string _note;
  const std::shared_ptr<std::atomic<bool>> _enabled = std::make_shared<std::atomic<bool>>(true);
};

// Gives a hold back at the end of a scope.
struct Releaser {
  void operator()(const Reference* held) const { held->Release(); }
};
using Held = std::unique_ptr<object, Releaser>;
inline Held Keep(object& held) {
  held.Hold();
  return Held(&held);
}

}  // namespace quill::base
