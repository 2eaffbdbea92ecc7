// What an application needs of the shared window, read from its layout.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "quill/AttrSet.h"
#include "Window.h"

namespace quill::stream {

struct ChainNeeds {
  std::vector<std::string> sessions;                         // names, in the order of the elements
  std::vector<std::shared_ptr<const Window::Block>> blocks;  // each once
};

// Reads the chains under "layout" in `description`, however deep. Of each element the parameter
// session_name names a session, and a parameter that is the address of a block needs that block.
// Any thread.
ChainNeeds ReadChainNeeds(const base::AttrSet& description);

}  // namespace quill::stream
