// What Linux has granted to one application: blocks and sessions in the shared window.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>

#include "quill/VbrcBlock.h"
#include "SessionProducer.h"
#include "SharedWindow.h"
#include "UniqueFd.h"

namespace tessel::rtos {

using quill::stream::VbrcBlock;

// REQUIRES: all of it lies in the window.
struct Grants {
  struct Session {
    std::span<std::byte> area;
    UniqueFd frame_doorbell;
    UniqueFd slot_doorbell;
  };
  std::map<std::uint64_t, std::uint64_t> blocks;  // offset in the window -> bytes
  std::map<std::string, Session> sessions;        // by name
};

// Finds grants by what layouts call them. Connection thread.
class GrantedMemory {
 public:
  // `linux_base` is the window's address on Linux. `window` has to outlive this and all that it
  // returns.
  GrantedMemory(const link::SharedWindow& window, std::uint64_t linux_base, Grants grants)
      : _window(window), _linux_base(linux_base), _grants(std::move(grants)) {}

  // The rate-control block whose Linux address is `text`; null with `error` when it lies in no
  // granted block.
  VbrcBlock* Block(const char* text, std::string& error) const;
  // The producer's end of the session `name`, once; null with `error` when none was granted, or it
  // is taken.
  std::unique_ptr<link::SessionProducer> TakeSession(const char* name, std::string& error);

 private:
  const link::SharedWindow& _window;
  const std::uint64_t _linux_base;
  Grants _grants;
};

}  // namespace tessel::rtos
