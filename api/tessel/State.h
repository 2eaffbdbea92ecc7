// The state of a stream as its client sees it.
#pragma once

#include "quill/IStatus.h"

namespace tessel::api::streaming::common {

// The host's stream status itself, value for value.
using State = quill::stream::IStatus::Status;

}  // namespace tessel::api::streaming::common
