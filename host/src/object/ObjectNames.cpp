#include "quill/ObjectNames.h"

#include <algorithm>
#include <atomic>

namespace quill::base {
namespace {

std::atomic<unsigned> g_last_id{0};
std::atomic<unsigned> g_last_unique{0};

}  // namespace

object_name::object_name() : _id(g_last_id.fetch_add(1, std::memory_order_relaxed) + 1) {}

unsigned object_name::ID() const { return _id; }
int object_name::Order() const { return _order; }
void object_name::Name(const char* name) {
  if (name != nullptr) _name = name;
}

void object_keywords::Name(const char* keyword) {
  if (keyword != nullptr && *keyword != '\0' && !HasKeyword(keyword)) _keywords.push_back(keyword);
}

bool object_keywords::HasKeyword(const char* keyword) const {
  return keyword != nullptr &&
         std::find(_keywords.begin(), _keywords.end(), keyword) != _keywords.end();
}

std::string UniqueString() { return UniqueString("unique", '_'); }

std::string UniqueString(const char* prefix, char separator) {
  std::string name = prefix == nullptr ? "" : prefix;
  // "x1" and 2 must not look like "x" and 12.
  const bool is_ambiguous = !name.empty() && name.back() >= '0' && name.back() <= '9';
  if (separator == '\0' && is_ambiguous) separator = '_';
  if (separator != '\0') name += separator;
  return name + std::to_string(g_last_unique.fetch_add(1, std::memory_order_relaxed) + 1);
}

}  // namespace quill::base
