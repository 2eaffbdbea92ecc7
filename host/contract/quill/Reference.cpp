#include "quill/Reference.h"

namespace quill::base {

void Reference::Hold() const { _holders.fetch_add(1, std::memory_order_relaxed); }

void Reference::Release() const {
  // Pairs with itself: what every holder did to the object happens before its end.
  if (_holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    const_cast<Reference*>(this)->LastReleased();
  }
}

}  // namespace quill::base
