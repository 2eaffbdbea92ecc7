// The board's audio devices as the core knows them: commands go to them, and elements are handed
// the microphone.
#pragma once

#include <string>

#include "messages/AudioControls.h"

namespace tessel::rtos {

class AudioDevice;  // of the board

// This class itself stands for a board without audio devices. Any thread.
class AudioService {
 public:
  virtual ~AudioService() = default;

  // Null: the board has none.
  virtual const AudioDevice* Microphone() const { return nullptr; }
  // Serve the requests of clients. False with `error`.
  virtual bool Execute(const link::ProbeAudio&, link::ProbeAnswer&, std::string& error) const {
    error = "the board has no audio devices";
    return false;
  }
  virtual bool Execute(const link::SetAudio&, link::Done&, std::string& error) {
    error = "the board has no audio devices";
    return false;
  }
};

}  // namespace tessel::rtos
