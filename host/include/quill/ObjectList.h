// The children of an object.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "quill/Visibility.h"

namespace quill::base {

class object;

// Children in order; owns them. One thread at a time.
class QUILL_PUBLIC ObjectList {
 public:
  ObjectList() = default;
  virtual ~ObjectList() = default;  // the owner calls DeleteAll() while it is still whole
  ObjectList(const ObjectList&) = delete;
  ObjectList& operator=(const ObjectList&) = delete;

  virtual bool Add(object* child);     // takes over the caller's hold; false when null or in it
  virtual bool Remove(object* child);  // hands the hold back to the caller; false when not in it
  // Destroys a child and nulls the caller's pointer. False when the child is null or, with
  // `must_be_listed`, not in the list.
  bool Delete(object*& child, bool must_be_listed);
  void DeleteAll();  // the last one first
  // Stops at the first call that returns false, and returns that.
  virtual bool ForEach(const std::function<bool(object&)>& visit) const;
  virtual std::size_t Size() const { return _children.size(); }

 protected:
  virtual object* TakeLast();

 private:
  void Renumber();
  std::vector<object*> _children;
};

// The same with a lock, for any thread. The lock is not held during a visit, which may do anything:
// it sees the children that the list had when the walk began, and each of them is held until the
// walk ends. A child taken out meanwhile by another thread is still visited, and destroyed on the
// walking thread at the end if that has the last hold.
class QUILL_PUBLIC ObjectListSafe : public ObjectList {
 public:
  bool Add(object* child) override;
  bool Remove(object* child) override;
  bool ForEach(const std::function<bool(object&)>& visit) const override;
  std::size_t Size() const override;

 protected:
  object* TakeLast() override;

 private:
  mutable std::mutex _mutex;
};

}  // namespace quill::base
