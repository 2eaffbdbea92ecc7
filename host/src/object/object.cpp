#include "quill/object.h"

#include <algorithm>
#include <sstream>

#include "quill/Debug.h"
#include "quill/IClass.h"
#include "quill/Message.h"

#include "Construction.h"
#include "MessageThread.h"

namespace quill::base {
namespace {

// "enable" of a set, if it has one; false, and logged, when it is no bool.
bool ReadEnable(const AttrSet& set, bool& enabled) {
  const char* enable = set.Get("enable");
  return !stream::Failed(enable != nullptr && !ConvertToImpl(enable, enabled),
                         "!ConvertToImpl(enable,enabled)", "enable=", enable);
}

}  // namespace

object::object(const char* name) : _children(std::make_unique<ObjectListSafe>()) {
  object_name::Name(name);
  Construction::Begin(*this);
}

object::~object() {
  _children->DeleteAll();
  Construction::Gone(*this);
}

bool object::Initialize(const char* name, const char* keyword, const char* note, object* parent) {
  object_name::Name(name);
  object_keywords::Name(keyword);
  _note = note == nullptr ? "" : note;
  return parent == nullptr || parent->addChild(this);
}

bool object::InitObject(AttrSet& set) {
  if (!initConfigure(set) || !initSerialize(set) || !configure(set)) return false;
  return set.Pairs().empty() ||
         !stream::Failed(true, "!property", "no such property: ", set.Pairs().front().key);
}

bool object::initConfigure(AttrSet& set) {
  bool enabled = Enable();
  if (!ReadEnable(set, enabled)) return false;
  Enable(enabled);
  if (const char* name = set.Get("name")) object_name::Name(name);
  std::istringstream keywords(set.Get("keyword") == nullptr ? "" : set.Get("keyword"));
  for (std::string keyword; keywords >> keyword;) object_keywords::Name(keyword.c_str());
  for (const char* key : {"name", "keyword", "enable"}) set.Remove(key);
  return true;
}

bool object::initSerialize(AttrSet& set) {
  AttrSet properties;
  for (const AttrSet::Pair& pair : set.Pairs()) {
    const IProperty* property = getPropertyInfo(hasProperty(pair.key.c_str()));
    if (property != nullptr && property->IsWritable()) properties.Add(pair.key.c_str(), pair.value);
  }
  for (const AttrSet::Pair& pair : properties.Pairs()) set.Remove(pair.key.c_str());
  return properties.Pairs().empty() || fromAttrSet(properties);
}

bool object::configure(AttrSet& set) { return fromAttrSet(set); }

object* object::create(AttrSet& description) const {
  const char* type = description.Get("type");
  if (stream::Failed(type == nullptr, "!type", "a description without type=")) return nullptr;
  const IClass* record = IClass::Find(type, true);
  if (stream::Failed(record == nullptr, "!record", "no class: ", type)) return nullptr;
  AttrSet pairs = description;
  pairs.Remove("type");
  // A const object may create a child. The child has an owner even if addChild() does not put it
  // into the list.
  auto* self = const_cast<object*>(this);
  object* child = record->CreateObject(nullptr, pairs, self);
  if (child == nullptr || self->addChild(child)) return child;
  child->_parent = nullptr;
  child->Release();
  return nullptr;
}

bool object::addChild(object* child) {
  if (child == nullptr || !_children->Add(child)) return false;
  if (child->_parent != this) child->_parent = this;  // known already, others may be reading it
  return true;
}

bool object::removeChild(object* child) {
  if (child == nullptr || !_children->Remove(child)) return false;
  child->_parent = nullptr;
  return true;
}

bool object::foreach (const std::function<bool(object&)>& visit) const {
  return _children->ForEach(visit);
}

bool object::layoutAdjust(AttrSet& set) {
  for (const AttrSet::Pair& pair : set.Pairs()) {
    object* found = nullptr;
    foreach ([&](object& child) {
      if (pair.key == child.Name()) found = &child;
      return found == nullptr;
    })
      ;
    if (stream::Failed(found == nullptr, "!child", "no child: ", pair.key)) return false;
    if (!found->fromString(pair.value.c_str())) return false;
  }
  return true;
}

object* object::getChild(int order) const {
  object* found = nullptr;
  foreach ([&](object& child) {
    if (child.Order() == order) found = &child;
    return found == nullptr;
  })
    ;
  return found;
}

bool object::fromAttrSet(const AttrSet& set) {
  for (const AttrSet::Pair& pair : set.Pairs()) {
    const int id = hasProperty(pair.key.c_str());
    const bool is_known = pair.key == "name" || pair.key == "enable" || pair.key == "keyword" ||
                          (id >= 0 && getPropertyInfo(id)->IsWritable());
    if (stream::Failed(!is_known, "!property", "no such property: ", pair.key)) return false;
  }
  bool enabled = true;
  if (!ReadEnable(set, enabled)) return false;
  std::vector<AttrSet::Pair> undo;
  for (const AttrSet::Pair& pair : set.Pairs()) {
    const int id = hasProperty(pair.key.c_str());
    if (id < 0) continue;
    std::string before;
    const bool can_undo = getString(id, before);
    if (stream::Failed(!setString(id, pair.value.c_str()), "!setString(id,value)", pair.key, "=",
                       pair.value)) {
      for (const AttrSet::Pair& old : undo) {
        setString(hasProperty(old.key.c_str()), old.value.c_str());
      }
      return false;
    }
    if (can_undo) undo.push_back({pair.key, before});
  }
  AttrSet rest = set;
  return initConfigure(rest);  // cannot refuse any more
}

bool object::toAttrSet(AttrSet& set) const {
  if (*Name() != '\0') set.Add("name", Name());
  std::string keywords;
  for (const std::string& keyword : Keywords()) keywords += (keywords.empty() ? "" : " ") + keyword;
  if (!keywords.empty()) set.Add("keyword", keywords);
  if (!Enable()) set.Add("enable", false);
  std::vector<std::string> names;
  getPropertyNameList(names);
  for (int id = 0; id < static_cast<int>(names.size()); ++id) {
    std::string text;
    if (getPropertyInfo(id)->IsWritable() && getString(id, text)) {
      set.Add(names[static_cast<std::size_t>(id)].c_str(), text);
    }
  }
  return true;
}

ostream& object::operator>>(ostream& out) const {
  out.Write(ToString());
  return out;
}

bool object::Enable() const { return _enabled->load(std::memory_order_relaxed); }
void object::Enable(bool enabled) { _enabled->store(enabled, std::memory_order_relaxed); }

object* object::Clone() const {
  AttrSet set;
  if (_class == nullptr || !_class->HasConstructor(typeid(void())) || !toAttrSet(set)) {
    return nullptr;
  }
  return _class->CreateObject(nullptr, set, nullptr);
}

bool object::Dispatch(Message& message, const Orient& orient) {
  const std::shared_ptr<object> kept(Keep(message));
  return stream::DeliverMessage(*this,
                                [this, kept, &message, orient] { return Send(message, orient); });
}

bool object::sendMessage(Message& message, const Orient& orient) {
  return Dispatch(message, orient);
}

bool object::Send(Message& message, const Orient& orient) {
  if (orient.Value() == Orient::kSink && processMessage(message)) return true;
  return Forward(message, orient);
}

bool object::receiveMessage(Message& message, const Orient& orient) {
  return processMessage(message) || Forward(message, orient);
}

bool object::processMessage(Message& message) { return RunCallback(message); }

// True when `visit` returned true for one of them.
bool object::VisitSiblings(bool behind, const std::function<bool(object&)>& visit) const {
  object* parent = Parent();
  if (parent == nullptr) return false;
  std::vector<Held> siblings;  // a receiver may change the list
  parent->foreach ([&](object& sibling) {
    if (behind ? sibling.Order() > Order() : sibling.Order() < Order()) {
      siblings.push_back(Keep(sibling));
    }
    return true;
  });
  if (!behind) std::reverse(siblings.begin(), siblings.end());
  return std::any_of(siblings.begin(), siblings.end(),
                     [&](const Held& sibling) { return visit(*sibling); });
}

// On to everyone in the direction of `orient` but this object.
bool object::Forward(Message& message, const Orient& orient) {
  const auto process = [&](object& receiver) { return receiver.processMessage(message); };
  switch (orient.Value()) {
    case Orient::kSink:
      return VisitSiblings(true, process);
    case Orient::kSource:
      return VisitSiblings(false, process);
    case Orient::kChildren: {
      std::vector<Held> children;  // a receiver may change the list
      foreach ([&](object& child) {
        children.push_back(Keep(child));
        return true;
      })
        ;
      return std::any_of(children.begin(), children.end(),
                         [&](const Held& child) { return child->receiveMessage(message, orient); });
    }
    case Orient::kParent:
      for (object* owner = _parent; owner != nullptr; owner = owner->_parent) {
        if (process(*owner)) return true;
      }
      return false;
    case Orient::kOwners: {
      // The outermost first. A receiver may remove inner owners, which then get no message.
      std::vector<object*> owners;
      for (object* owner = _parent; owner != nullptr; owner = owner->_parent) {
        owners.push_back(owner);
      }
      bool is_taken = false;
      for (std::size_t i = owners.size(); i-- > 0;) {
        const bool is_outermost = i + 1 == owners.size();
        if (!is_outermost && owners[i]->_parent == nullptr) break;
        is_taken = process(*owners[i]) || is_taken;
      }
      return is_taken;
    }
  }
  return false;
}

}  // namespace quill::base
