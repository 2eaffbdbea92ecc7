#include "Callbacks.h"

namespace quill::base {
namespace {

struct Outermost {
  const object* part = nullptr;
  std::shared_ptr<Callbacks> callbacks;
};

Outermost FindOutermost(const object& part) {
  Outermost outermost;
  for (const object* each = &part; each != nullptr; each = each->Parent()) {
    if (auto callbacks = each->GetCallbacks()) outermost = {each, std::move(callbacks)};
  }
  return outermost;
}

}  // namespace

CallbackGuard::CallbackGuard(object& part) {
  Outermost outermost = FindOutermost(part);
  _callbacks = std::move(outermost.callbacks);
  if (_callbacks != nullptr) _callbacks->Begin();
  for (object* each = &part; each != nullptr; each = each->Parent()) {
    if (each != outermost.part) _held.push_back(Keep(*each));
  }
}

CallbackGuard::~CallbackGuard() {
  _held.clear();  // before the outermost one goes on
  if (_callbacks != nullptr) _callbacks->End();
}

std::shared_ptr<Callbacks> OwnerCallbacks(const object& part) {
  return FindOutermost(part).callbacks;
}

}  // namespace quill::base
