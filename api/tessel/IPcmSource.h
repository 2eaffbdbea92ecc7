// A source of sound as PCM samples.
#pragma once

#include <cstdint>
#include <vector>

#include "tessel/IMicrophone.h"
#include "tessel/IStreamOutput.h"

namespace tessel::api::streaming {

namespace common {

// The client's request. Delivered samples are always 16 bits, little-endian, channels interleaved.
struct PcmMediaInfo {
  std::int32_t sampleRate = 16000;  // samples/s of each channel
  std::int32_t channels = 1;
  std::int32_t format = 1;  // linear PCM
  std::int32_t bitsPerSample = 16;
};
using PcmMediaInfoList = std::vector<PcmMediaInfo>;

// Settings are stored unchecked and take effect at the next Open(). Client's thread. Declaration
// order is vtable order.
class TESSEL_PUBLIC IAudio {
 public:
  virtual void SetSampleRate(int samples_per_second) = 0;
  virtual void SetChannels(int channels) = 0;

 protected:
  ~IAudio() = default;  // never deleted through this interface
};

}  // namespace common

// Each frame is a block of samples; its time stamp is that of the first sample. Declaration order
// is vtable order, after the functions of IStreamControl and IStreamOutput.
class TESSEL_PUBLIC IPcmSource : public virtual common::IStreamOutput,
                                 public virtual common::IAudio {
 public:
  // Binds the source to the microphone of the back end `name`. The first successful call is final:
  // later calls change nothing and return true. False when IAudioDevice::Microphone(name) is null.
  // If no microphone is bound yet, Open() binds "dualos".
  virtual bool SelectMicrophone(const char* name) = 0;
  virtual dev::IMicrophone* Microphone() = 0;  // borrowed; null until one is bound
  virtual common::PcmMediaInfo GetPcmMediaInfo() const = 0;
};

}  // namespace tessel::api::streaming
