#include "Construction.h"

#include <atomic>

namespace quill::base {
namespace {

thread_local object* t_current = nullptr;
thread_local bool t_is_inside = false;
std::atomic<void (*)(const object&)> g_on_gone{nullptr};

}  // namespace

void Construction::Begin(object& built) {
  if (t_is_inside && t_current == nullptr) t_current = &built;
}

void Construction::Gone(object& built) {
  if (t_current == &built) t_current = nullptr;  // its constructor has thrown
  if (auto* on_gone = g_on_gone.load(std::memory_order_acquire)) on_gone(built);
}

void Construction::OnGone(void (*hook)(const object&)) {
  g_on_gone.store(hook, std::memory_order_release);
}

object* Construction::Current() { return t_current; }

Construction::Scope::Scope() : _outer(t_current), _was_inside(t_is_inside) {
  t_current = nullptr;
  t_is_inside = true;
}

Construction::Scope::~Scope() {
  t_current = _outer;
  t_is_inside = _was_inside;
}

}  // namespace quill::base
