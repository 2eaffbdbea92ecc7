// Makes the host's function sink call the functions of one object.
#pragma once

#include <functional>
#include <string>

#include "quill/object.h"
#include "quill/Packet.h"

namespace tessel::dualos {

// For its lifetime, registers a class that binds the host's function sink to the functions below.
// They are read at each call, so set them before the stream opens. Must not move.
class StreamFunc {
 public:
  explicit StreamFunc(const char* base);
  ~StreamFunc();
  StreamFunc(const StreamFunc&) = delete;
  StreamFunc& operator=(const StreamFunc&) = delete;

  bool Register(const char* base);
  bool Unregister();

  // The first two run on the thread that changes the state.
  std::function<bool(quill::base::object*, quill::stream::IMedia*&)> open;
  std::function<bool()> close;
  std::function<bool(quill::stream::Packet*&)> output;  // stream thread
  std::function<bool(quill::base::Message&)> message;   // message thread
  std::string name;                                     // of the class, unique in the process
};

}  // namespace tessel::dualos
