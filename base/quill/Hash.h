// The host's text hash, used to tag owners in shared memory and to compare names of a status.
#pragma once

#include "quill/Visibility.h"

namespace quill::base {

// 32-bit FNV-1a (Fowler, Noll, Vo; offset basis 2166136261, prime 16777619) over `text` with ASCII
// upper case folded to lower case. Null gives 0. Any thread.
QUILL_PUBLIC unsigned Hash(const char* text);

}  // namespace quill::base
