#include "Pipeline.h"

#include <algorithm>

#include "PipelineElement.h"
#include "quill/Debug.h"

namespace quill::stream {

using base::AttrSet;
using Status = IStatus::Status;

bool Pipeline::configure(AttrSet& set) {
  const char* layout = set.Get("layout");
  if (Failed(layout == nullptr, "!layout")) return false;
  std::vector<base::LayoutElement> elements;
  std::string error;
  if (Failed(!base::ParseLayout(layout, elements, error), "!ParseLayout(layout)", error)) {
    return false;
  }
  PipelineElement* upstream = nullptr;
  for (base::LayoutElement& description : elements) {
    description.params.Add("type", description.class_name);
    auto* element = dynamic_cast<PipelineElement*>(create(description.params));
    if (Failed(element == nullptr, "!element", description.class_name)) return false;
    if (upstream != nullptr) element->Attach(*upstream);
    upstream = element;
  }
  set.Remove("layout");
  return fromAttrSet(set);
}

std::vector<Service*> Pipeline::InFlow() const {
  std::vector<Service*> order;
  foreach ([&](base::object& child) {
    if (auto* service = dynamic_cast<Service*>(&child)) order.push_back(service);
    return true;
  })
    ;
  return order;
}

std::vector<Service*> Pipeline::AgainstFlow() const {
  std::vector<Service*> order = InFlow();
  std::reverse(order.begin(), order.end());
  return order;
}

// All or nothing: if one fails, those that went up before it are taken down again.
bool Pipeline::Up(const std::vector<Service*>& order, Step step, Step undo) const {
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (step(*order[i])) continue;
    while (i-- > 0) undo(*order[i]);
    return false;
  }
  return true;
}

// Takes all of them down, even if one fails.
bool Pipeline::Down(const std::vector<Service*>& order, Step step) const {
  bool done = true;
  for (Service* service : order) done = step(*service) && done;
  return done;
}

namespace {

bool ToNull(Service& service) { return service.StatusDown(Status::kNull); }
bool ToReady(Service& service) {
  return service.LastStatus() <= Status::kReady || service.StatusDown(Status::kReady);
}
bool UpToReady(Service& service) { return service.StatusUp(Status::kReady); }
bool UpToPlay(Service& service) { return service.StatusUp(Status::kPlay); }

}  // namespace

bool Pipeline::Open() { return Up(InFlow(), &UpToReady, &ToNull) && Service::Open(); }

// The sink first, so that it is ready when the source sends.
bool Pipeline::Start() { return Up(AgainstFlow(), &UpToPlay, &ToReady) && Service::Start(); }

void Pipeline::afterStatusUp(Status target) {
  if (target >= Status::kPlay && LastStatus() >= Status::kPlay) {
    foreach ([](base::object& child) {
      if (auto* element = dynamic_cast<PipelineElement*>(&child)) element->Playing();
      return true;
    })
      ;
  }
  Service::afterStatusUp(target);
}

// Service::Stop() waits for callbacks, so the elements stop before it.
bool Pipeline::Stop() {
  const bool done = Down(InFlow(), &ToReady);
  return Service::Stop() && done;
}

bool Pipeline::Close() {
  const bool done = Down(InFlow(), &ToNull);
  return Service::Close() && done;
}

}  // namespace quill::stream
