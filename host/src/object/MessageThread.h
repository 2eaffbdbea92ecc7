// The thread that delivers messages.
#pragma once

#include <functional>

#include "quill/object.h"

namespace quill::stream {

// Runs `work` on the message thread, after all that was posted before. That thread starts at the
// first post and lives as long as the process. Messages have a thread of their own because their
// callbacks may run commands, whose answers another thread has to receive meanwhile. Any thread.
void PostMessage(std::function<void()> work);

// Runs `deliver` on the message thread, directly if called on it, and returns its answer. `sender`
// and its owners are held until then. False at the time-out of a command; `deliver` runs later
// then.
bool DeliverMessage(base::object& sender, std::function<bool()> deliver);

}  // namespace quill::stream
