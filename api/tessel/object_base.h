// Root of the objects a client of the streaming framework holds, and the mark of what is visible
// outside the library that implements it. In all interfaces here a null text is refused: an
// operation that answers says false or null, a setter keeps what it had.
#pragma once

#include <cstddef>

// The interfaces a client casts to must keep one identity across the client, the host and the
// plug-in, each of which is built with hidden visibility.
#define TESSEL_PUBLIC __attribute__((visibility("default")))

namespace tessel {

class TESSEL_PUBLIC object_base {
 public:
  static void* operator new(std::size_t size_bytes) { return ::operator new(size_bytes); }
  static void operator delete(void* memory, std::size_t) { ::operator delete(memory); }

  virtual ~object_base() = default;

  // This object seen as a `T`, or null when it is none. Any thread; borrows.
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
