// The inputs of the real-time side that a command reads from.
#pragma once

#include <string>

#include "quill/Host.h"

namespace tessel::tool {

struct InputOptions {
  std::string sensor = quill::host::Options().sensor;
  std::string mic = quill::host::Options().mic;
  bool once = false;     // a media file is played once
  bool unpaced = false;  // as fast as frames are taken

  // Whether another input than the usual one is named.
  bool HasSensor() const { return sensor != quill::host::Options().sensor; }
  bool HasMic() const { return mic != quill::host::Options().mic; }
};

// Chains that are created from now on read from these inputs.
void SetInputs(const InputOptions& inputs);

}  // namespace tessel::tool
