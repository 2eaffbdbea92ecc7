#include "Construction.h"

#include <algorithm>
#include <vector>

#include "Window.h"

namespace quill::base {
namespace {

std::vector<object*>& UnderConstruction() {
  thread_local std::vector<object*> objects;
  return objects;
}

}  // namespace

void Construction::Begin(object& built) { UnderConstruction().push_back(&built); }

void Construction::Gone(object& built) {
  auto& objects = UnderConstruction();
  objects.erase(std::remove(objects.begin(), objects.end(), &built), objects.end());
  stream::Window::FreeBlocksOf(&built);
}

object* Construction::Current() {
  const auto& objects = UnderConstruction();
  return objects.empty() ? nullptr : objects.back();
}

Construction::Scope::Scope() : _depth(UnderConstruction().size()) {}

Construction::Scope::~Scope() {
  auto& objects = UnderConstruction();
  if (objects.size() > _depth) objects.resize(_depth);
}

}  // namespace quill::base
