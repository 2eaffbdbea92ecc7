// The Linux half of a stream, driven by texts.
#pragma once

#include "Pipeline.h"

namespace quill::stream {

// "Application": holds the object described by layout=. Writing "statusup" or "statusdown" raises
// or lowers it to the named status; "status" reads the current one.
class Application : public virtual Pipeline {
 public:
  Application();
  bool configure(base::AttrSet& set) override;
};

}  // namespace quill::stream
