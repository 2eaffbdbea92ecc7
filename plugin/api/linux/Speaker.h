// The camera's speaker, as Linux sees it.
#pragma once

#include "AudioDriver.h"
#include "tessel/ISpeaker.h"

namespace tessel::dualos {

// Its samples stay on the real-time side. Only properties and controls work; all other operations
// do nothing and return 0 or false.
class Speaker : public AudioDriver, public dev::ISpeaker {
 public:
  Speaker() : AudioDriver("Speaker") {}

  // Writes two green trace lines. Volume() calls it at each change.
  bool IsSupportVolumeControl() const override;

  int GetLeftSamples() const override { return 0; }
  int Write(short*, int) override { return 0; }
  int Write(int*, int, int) override { return 0; }
  bool DevOpen() override { return false; }
  bool DevClose() override { return false; }
  bool DevStart() override { return false; }
  bool DevStop() override { return false; }
  bool DevPause() override { return false; }
  bool DevResume() override { return false; }
};

}  // namespace tessel::dualos
