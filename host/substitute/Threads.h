// Threads of the host library, and the one that runs clients' message callbacks.
#pragma once

#include <functional>
#include <thread>

namespace quill::stream {

// A thread with a name (at most 15 characters) that no signal of the client's is delivered to.
// Joinable; throws nothing: a default-constructed thread when the system has none left.
std::thread StartThread(const char* name, std::function<void()> run);

// Runs `work` on the message thread, after all that was posted before. That thread starts at the
// first post and lives as long as the process. Callbacks have a thread of their own because they
// may run commands, whose answers another thread has to receive meanwhile. Any thread.
void PostMessage(std::function<void()> work);

}  // namespace quill::stream
