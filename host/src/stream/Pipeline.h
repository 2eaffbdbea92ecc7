// A chain of elements that changes its status as one.
#pragma once

#include <vector>

#include "quill/Service.h"

namespace quill::stream {

// "pipeline": a chain of elements, given as layout=.
class Pipeline : public virtual Service {
 public:
  bool configure(base::AttrSet& set) override;
  bool Open() override;
  bool Start() override;
  bool Stop() override;
  bool Close() override;
  void afterStatusUp(Status target) override;

 private:
  using Step = bool (*)(Service&);
  bool Up(const std::vector<Service*>& order, Step step, Step undo) const;
  bool Down(const std::vector<Service*>& order, Step step) const;
  std::vector<Service*> InFlow() const;
  std::vector<Service*> AgainstFlow() const;
};

}  // namespace quill::stream
