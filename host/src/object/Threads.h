// Threads of the host library.
#pragma once

#include <functional>
#include <thread>

namespace quill::stream {

// A thread with a name (at most 15 characters) that no signal of the client's is delivered to.
// Joinable; throws nothing: a default-constructed thread when the system has none left.
std::thread StartThread(const char* name, std::function<void()> run);

// Whether this is a host thread, which may be running a client's callback.
bool IsHostThread();

// Logs the exception that is being handled, thrown by a client's callback.
void LogCallbackException();

// Runs a client's callback and returns its answer. An exception ends here: it is logged, and the
// answer is false.
template <typename Callback>
bool CallClient(Callback&& callback) {
  try {
    return callback();
  } catch (...) {
    LogCallbackException();
    return false;
  }
}

}  // namespace quill::stream
