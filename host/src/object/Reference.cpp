#include "quill/Reference.h"

namespace quill::base {
namespace {

// Both are inlined into their callers, as they run for each frame. Taking their addresses makes the
// host export them too, for callers built without these headers.
[[gnu::used]] void (Reference::*const kExported[])() const = {&Reference::Hold,
                                                              &Reference::Release};

}  // namespace
}  // namespace quill::base
