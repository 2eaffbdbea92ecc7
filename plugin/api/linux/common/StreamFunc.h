// Makes the host's function sink call back into one particular object.
#pragma once

#include <functional>
#include <string>

#include "quill/object.h"
#include "quill/Packet.h"

namespace tessel::dualos {

// Registers, for its life, a class of its own that binds the host's function sink to the callbacks
// below. They are read at each call: set them before the stream opens. Must not move.
class StreamFunc {
 public:
  explicit StreamFunc(const char* base);
  ~StreamFunc();
  StreamFunc(const StreamFunc&) = delete;
  StreamFunc& operator=(const StreamFunc&) = delete;

  bool Register(const char* base);
  bool Unregister();

  std::function<bool(quill::base::object*, quill::stream::IMedia*&)> open;  // client's thread
  std::function<bool()> close;                                              // client's thread
  std::function<bool(quill::stream::Packet*&)> output;                      // stream thread
  std::function<bool(quill::base::Message&)> message;                       // a host thread
  std::string name;  // of the class, unique in the process
};

}  // namespace tessel::dualos
