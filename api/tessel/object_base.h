// The base of all objects that a client holds, and the mark of classes that are visible outside
// their library. All interfaces in this folder refuse a null text: an operation with a result
// returns false or null, a setter keeps its old value.
#pragma once

#include <cstddef>

// Client, host and plug-in are built with hidden visibility. An interface that a client casts to
// must be visible, so that it is one type in all three.
#define TESSEL_PUBLIC __attribute__((visibility("default")))

namespace tessel {

class TESSEL_PUBLIC object_base {
 public:
  static void* operator new(std::size_t size_bytes) { return ::operator new(size_bytes); }
  static void operator delete(void* memory, std::size_t) { ::operator delete(memory); }

  virtual ~object_base() = default;

  // This object as a `T`, or null if it is not one. Borrowed. Any thread.
  template <typename T>
  T* AsType() {
    return dynamic_cast<T*>(this);
  }
  template <typename T>
  const T* AsType() const {
    return dynamic_cast<const T*>(this);
  }
};

}  // namespace tessel
