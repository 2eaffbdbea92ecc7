// The Linux half of a stream, driven by texts.
#pragma once

#include "Pipeline.h"

namespace quill::stream {

// "Application": holds one description, given as layout=, and is driven by texts: writing
// "statusup" or "statusdown" moves it at least up or down to the status named; "status" reads where
// it is.
class Application : public virtual Pipeline {
 public:
  Application();
  bool configure(base::AttrSet& set) override;
};

}  // namespace quill::stream
