// The elements of a pipeline on Linux.
#pragma once

#include <cstdint>
#include <memory>

#include "quill/Service.h"
#include "Session.h"
#include "StreamMedia.h"

namespace quill::stream {

// Called by the thread that changes the pipeline's status. The pipeline opens its elements in
// data-flow order and starts them in the opposite order.
class PipelineElement : public virtual Service {
 public:
  // The element in front of this one; borrows for its life.
  void Attach(PipelineElement& upstream) { _upstream = &upstream; }
  // The session whose packets it delivers; null while closed, and for a sink.
  virtual std::shared_ptr<Session> Output() const { return nullptr; }
  virtual std::shared_ptr<StreamMedia> OutputMedia() const { return nullptr; }
  // How many requests for single frames were served before the first packet of Output().
  virtual std::uint32_t RequestsBefore() const { return 0; }
  // Called when all elements of the pipeline play.
  virtual void Playing() {}

 protected:
  PipelineElement* Upstream() const { return _upstream; }

 private:
  PipelineElement* _upstream = nullptr;
};

}  // namespace quill::stream
