// What the client has set for the whole process.
#include <algorithm>
#include <cstdlib>
#include <mutex>

#include "quill/Host.h"

#include "Timeouts.h"

namespace quill {
namespace host {
namespace {

// Never destroyed, as threads of the host may read it at the end of the process.
struct Stored {
  std::mutex mutex;
  Options options;  // guarded by mutex
};

Stored& TheOptions() {
  static auto* stored = new Stored;
  return *stored;
}

}  // namespace

void SetOptions(const Options& options) {
  const std::lock_guard lock(TheOptions().mutex);
  TheOptions().options = options;
}

Options GetOptions() {
  const std::lock_guard lock(TheOptions().mutex);
  return TheOptions().options;
}

std::string RtosSocket() {
  const std::string asked = GetOptions().rtos_socket;
  const char* usual = std::getenv("TESSEL_RTOS_SOCKET");
  return asked.empty() && usual != nullptr ? usual : asked;
}

}  // namespace host

std::chrono::nanoseconds stream::CommandTimeout() {
  return std::min(host::GetOptions().command_timeout, kLongestTimeout);
}
std::chrono::nanoseconds stream::StartTimeout() {
  return std::min(host::GetOptions().start_timeout, kLongestTimeout);
}

}  // namespace quill
