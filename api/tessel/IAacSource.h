// A source of sound coded as AAC.
#pragma once

#include <cstdint>

#include "tessel/IBitRateControl.h"
#include "tessel/IPcmSource.h"

namespace tessel::api::streaming {

namespace common {

// The first two as asked, the last five as the real-time side announced them at Open().
struct AacMediaInfo {
  std::int32_t rate = 48000;    // samples/s of each channel
  std::int32_t channels = 2;    //
  bool adts = true;             // each frame begins with an ADTS header
  std::int32_t adtsLength = 7;  // its bytes
  // ISO/IEC 14496-3: audio object type, version of the ADTS header, sampling frequency index.
  std::int32_t profile = 0;
  std::int32_t version = 0;
  std::int32_t rateidx = 0;
  std::int32_t bitrate = 0;  // bits/s
};

}  // namespace common

// Each frame is one AAC frame behind its ADTS header. Settings are stored unchecked and act at the
// next Open(). Client's thread. The order of declaration is the order of the slots.
class TESSEL_PUBLIC IAacSource : public virtual IPcmSource, public virtual common::IEncoder {
 public:
  virtual void SetProfile(const char* name) = 0;     // copied; "LC"
  virtual void SetTargetChannels(int channels) = 0;  // of the coded sound alone
  virtual void SetBandWidth(int hertz) = 0;          // 0: as the encoder likes
  virtual common::AacMediaInfo GetAacMediaInfo() const = 0;
  void SetBitRate(int bits_per_second) override = 0;
  void SetSampleRate(int samples_per_second) override = 0;
  void SetChannels(int channels) override = 0;
};

}  // namespace tessel::api::streaming
