#include "quill/ObjectList.h"

#include <algorithm>

#include "quill/object.h"

namespace quill::base {

bool ObjectList::Add(object* child) {
  if (child == nullptr) return false;
  if (std::find(_children.begin(), _children.end(), child) != _children.end()) return false;
  _children.push_back(child);
  Renumber();
  return true;
}

bool ObjectList::Remove(object* child) {
  const auto place = std::find(_children.begin(), _children.end(), child);
  if (place == _children.end()) return false;
  (*place)->_order = -1;
  _children.erase(place);
  Renumber();
  return true;
}

bool ObjectList::Delete(object*& child, bool must_be_listed) {
  object* doomed = std::exchange(child, nullptr);
  if (doomed == nullptr) return false;
  const bool was_listed = Remove(doomed);
  if (!was_listed && must_be_listed) return false;
  doomed->_parent = nullptr;  // somebody else may hold it for longer
  doomed->Release();
  return true;
}

void ObjectList::DeleteAll() {
  while (object* child = TakeLast()) {
    child->_parent = nullptr;
    child->Release();
  }
}

bool ObjectList::ForEach(const std::function<bool(object&)>& visit) const {
  return std::all_of(_children.begin(), _children.end(),
                     [&](object* child) { return visit(*child); });
}

object* ObjectList::TakeLast() {
  if (_children.empty()) return nullptr;
  object* child = _children.back();
  _children.pop_back();
  return child;
}

void ObjectList::Renumber() {
  for (std::size_t i = 0; i < _children.size(); ++i) _children[i]->_order = static_cast<int>(i);
}

bool ObjectListSafe::Add(object* child) {
  const std::lock_guard lock(_mutex);
  return ObjectList::Add(child);
}

bool ObjectListSafe::Remove(object* child) {
  const std::lock_guard lock(_mutex);
  return ObjectList::Remove(child);
}

bool ObjectListSafe::ForEach(const std::function<bool(object&)>& visit) const {
  std::vector<Held> children;
  {
    const std::lock_guard lock(_mutex);
    ObjectList::ForEach([&](object& child) {
      children.push_back(Keep(child));
      return true;
    });
  }
  return visit && std::all_of(children.begin(), children.end(),
                              [&](const Held& child) { return visit(*child); });
}

std::size_t ObjectListSafe::Size() const {
  const std::lock_guard lock(_mutex);
  return ObjectList::Size();
}

object* ObjectListSafe::TakeLast() {
  const std::lock_guard lock(_mutex);
  return ObjectList::TakeLast();
}

}  // namespace quill::base
