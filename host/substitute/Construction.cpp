#include "Construction.h"

#include "Window.h"

namespace quill::base {
namespace {

thread_local object* t_current = nullptr;
thread_local bool t_is_inside = false;

}  // namespace

void Construction::Begin(object& built) {
  if (t_is_inside && t_current == nullptr) t_current = &built;
}

void Construction::Gone(object& built) {
  if (t_current == &built) t_current = nullptr;  // its constructor has thrown
  stream::Window::FreeBlocksOf(&built);
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
