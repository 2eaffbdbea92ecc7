// What a pipeline on Linux is made of.
#pragma once

#include <cstdint>
#include <memory>

#include "quill/Service.h"
#include "Session.h"
#include "StreamMedia.h"

namespace quill::stream {

// The thread whose change runs. A pipeline opens its elements in data-flow order and starts them
// against it.
class PipelineElement : public virtual Service {
 public:
  // The element in front of this one; borrows for its life.
  void Attach(PipelineElement& upstream) { _upstream = &upstream; }
  // What it delivers, once open; null before and for elements at the end.
  virtual std::shared_ptr<Session> Output() const { return nullptr; }
  virtual std::shared_ptr<StreamMedia> OutputMedia() const { return nullptr; }
  // How many requests for single frames were served before the first packet of Output().
  virtual std::uint32_t RequestsBefore() const { return 0; }
  // All elements of the pipeline play now.
  virtual void Playing() {}

 protected:
  PipelineElement* Upstream() const { return _upstream; }

 private:
  PipelineElement* _upstream = nullptr;
};

}  // namespace quill::stream
