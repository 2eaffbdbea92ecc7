// The camera's microphone, as Linux sees it.
#pragma once

#include "AudioDriver.h"
#include "tessel/IMicrophone.h"

namespace tessel::dualos {

// Its samples stay on the real-time side. Only properties and controls work; all other operations
// do nothing and return 0, null or false.
class Microphone : public AudioDriver, public dev::IMicrophone {
 public:
  Microphone() : AudioDriver("Microphone") {}

  int GetLeftSamples(int) const override { return 0; }
  int Read(int&, short*, int) override { return 0; }
  int Read(int&, int*, int, int) override { return 0; }
  void* CreateReader() override { return nullptr; }
  bool DevOpen() override { return false; }
  bool DevClose() override { return false; }
  bool DevStart() override { return false; }
  bool DevStop() override { return false; }
  bool DevPause() override { return false; }
  bool DevResume() override { return false; }
};

}  // namespace tessel::dualos
