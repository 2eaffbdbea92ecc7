// A value that one thread replaces while another thread uses it.
#pragma once

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

namespace tessel::dualos {

// Lock-free. The owner replaces the value; the user claims it while using it. A replaced value is
// freed once it is no longer claimed. One owner thread and one user thread at a time.
template <typename T>
class Replaceable {
 public:
  // Owner's thread; null removes the value.
  void Set(std::unique_ptr<const T> fresh) {
    _current.store(fresh.get());
    if (auto former = std::exchange(_newest, std::move(fresh))) {
      _replaced.push_back(std::move(former));
    }
    FreeReplaced();
  }
  // Owner's thread.
  void FreeReplaced() {
    const T* claimed = _claimed.load();
    std::erase_if(_replaced, [claimed](const auto& value) { return value.get() != claimed; });
  }
  // Owner's thread; null when no value is set.
  const T* Newest() const { return _newest.get(); }
  bool IsSet() const { return _current.load() != nullptr; }  // any thread

  // User's thread: the value, valid until Unclaim(); null when no value is set.
  //
  // Claim() loads the value again after storing the claim, and Set() loads the claim after storing
  // the new value. All four accesses are sequentially consistent: either Claim() sees the new
  // value, or Set() sees the claim.
  const T* Claim() {
    const T* value = _current.load();
    for (;;) {
      _claimed.store(value);
      const T* current = _current.load();
      if (current == value) return value;
      value = current;
    }
  }
  void Unclaim() { _claimed.store(nullptr); }

 private:
  std::unique_ptr<const T> _newest;                 // null: none
  std::vector<std::unique_ptr<const T>> _replaced;  // may be in use
  std::atomic<const T*> _current{nullptr};          // what _newest holds
  std::atomic<const T*> _claimed{nullptr};          // what the user uses
};

}  // namespace tessel::dualos
