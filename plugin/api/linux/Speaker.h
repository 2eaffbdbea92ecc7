// The Linux-side face of the camera's speaker.
#pragma once

#include "AudioDriver.h"
#include "tessel/ISpeaker.h"

namespace tessel::dualos {

// Samples are played by chains of the real-time side, so everything but properties and controls
// does nothing and says so. Threads as of the interfaces.
class Speaker : public AudioDriver, public dev::ISpeaker {
 public:
  Speaker() : AudioDriver("Speaker") {}

  // Writes two green lines: every change of volume asks this.
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
