// A source of sound as samples.
#pragma once

#include <cstdint>
#include <vector>

#include "tessel/IMicrophone.h"
#include "tessel/IStreamOutput.h"

namespace tessel::api::streaming {

namespace common {

// As asked; what is delivered is always 16 bits, little endian, channels interleaved.
struct PcmMediaInfo {
  std::int32_t sampleRate = 16000;  // samples/s of each channel
  std::int32_t channels = 1;        //
  std::int32_t format = 1;          // linear PCM
  std::int32_t bitsPerSample = 16;  //
};
using PcmMediaInfoList = std::vector<PcmMediaInfo>;

// Settings are stored unchecked and act at the next Open(). Client's thread. The order of
// declaration is the order of the slots.
class TESSEL_PUBLIC IAudio {
 public:
  virtual void SetSampleRate(int samples_per_second) = 0;
  virtual void SetChannels(int channels) = 0;

 protected:
  ~IAudio() = default;  // never deleted through this interface
};

}  // namespace common

// Each frame is a block of samples; its time is that of the first one. The order of declaration is
// the order of the slots, those of IStreamControl and IStreamOutput in front.
class TESSEL_PUBLIC IPcmSource : public virtual common::IStreamOutput,
                                 public virtual common::IAudio {
 public:
  // Binds the source to the microphone of the back end `name`, once for its whole life: later calls
  // keep the first one and answer true. False when there is none. Without a call Open() binds the
  // source to "dualos".
  virtual bool SelectMicrophone(const char* name) = 0;
  virtual dev::IMicrophone* Microphone() = 0;  // borrowed; null before one is bound
  virtual common::PcmMediaInfo GetPcmMediaInfo() const = 0;
};

}  // namespace tessel::api::streaming
