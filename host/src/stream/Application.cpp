#include "Application.h"

#include <memory>
#include <string>

#include "quill/Debug.h"

namespace quill::stream {

using base::AttrSet;
using Status = IStatus::Status;

Application::Application() {
  const auto add = [this](const char* name, bool up) {
    const auto move = [this, up](base::object*, const std::string& word) {
      Status target = Status::kNull;
      if (Failed(!StatusFromName(word.c_str(), target), "!StatusFromName(word)", word))
        return false;
      // A callback may give the last hold back during the change.
      const base::Held held = base::Keep(*this);
      if (up) return !IsLost() && LastStatus() >= target ? true : StatusUp(target);
      return LastStatus() <= target || StatusDown(target);
    };
    AddProperty(std::make_unique<base::TProperty<std::string>>(name, nullptr, move));
  };
  add("statusup", true);
  add("statusdown", false);
  AddProperty(std::make_unique<base::TProperty<const char*>>(
      "status", [this](const base::object*, const char*& name) {
        name = StatusName(CurrStatus());
        return true;
      }));
}

bool Application::configure(AttrSet& set) {
  const char* layout = set.Get("layout");
  if (Failed(layout == nullptr, "!layout")) return false;
  AttrSet description;
  if (Failed(!description.Parse(layout), "!description.Parse(layout)", description.Error())) {
    return false;
  }
  if (create(description) == nullptr) return false;
  const char* wanted = set.Get("status");
  if (wanted != nullptr && !SetStr("statusup", wanted)) return false;
  for (const char* key : {"layout", "status"}) set.Remove(key);
  return fromAttrSet(set);
}

}  // namespace quill::stream
