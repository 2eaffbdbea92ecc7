#include "ForkedChild.h"

#include <atomic>

#include <pthread.h>
#include <unistd.h>

namespace quill::stream {
namespace {

std::atomic<bool> g_is_forked_child{false};
std::atomic<int> g_fd_to_close{-1};
const int g_at_fork = pthread_atfork(nullptr, nullptr, [] {
  g_is_forked_child.store(true);
  const int fd = g_fd_to_close.exchange(-1);
  if (fd >= 0) close(fd);
});

}  // namespace

bool IsForkedChild() { return g_is_forked_child.load(std::memory_order_relaxed); }

void CloseInForkedChild(int fd) { g_fd_to_close.store(fd); }
void KeepInForkedChild(int fd) { g_fd_to_close.compare_exchange_strong(fd, -1); }

}  // namespace quill::stream
