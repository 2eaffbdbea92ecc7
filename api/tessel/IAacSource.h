// A source of AAC-coded sound.
#pragma once

#include <cstdint>

#include "tessel/IBitRateControl.h"
#include "tessel/IPcmSource.h"

namespace tessel::api::streaming {

namespace common {

// `rate` and `channels` are the client's request. `adtsLength` and the fields below it are what the
// real-time side reported at Open().
struct AacMediaInfo {
  std::int32_t rate = 48000;  // samples/s of each channel
  std::int32_t channels = 2;
  bool adts = true;             // each frame begins with an ADTS header
  std::int32_t adtsLength = 7;  // size of that header, bytes
  // ISO/IEC 14496-3: audio object type, version of the ADTS header, sampling frequency index.
  std::int32_t profile = 0;
  std::int32_t version = 0;
  std::int32_t rateidx = 0;
  std::int32_t bitrate = 0;  // bits/s
};

}  // namespace common

// Each frame is one AAC frame with its ADTS header in front. Settings are stored unchecked and take
// effect at the next Open(). Client's thread. Declaration order is vtable order.
class TESSEL_PUBLIC IAacSource : public virtual IPcmSource, public virtual common::IEncoder {
 public:
  virtual void SetProfile(const char* name) = 0;     // copied; "LC"
  virtual void SetTargetChannels(int channels) = 0;  // of the coded sound only
  virtual void SetBandWidth(int hertz) = 0;          // 0: the encoder decides
  virtual common::AacMediaInfo GetAacMediaInfo() const = 0;
  void SetBitRate(int bits_per_second) override = 0;
  void SetSampleRate(int samples_per_second) override = 0;
  void SetChannels(int channels) override = 0;
};

}  // namespace tessel::api::streaming
