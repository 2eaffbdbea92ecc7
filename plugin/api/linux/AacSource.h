// Sound from the real-time side's microphone, which the real-time side codes as AAC.
#pragma once

#include <cstdint>
#include <string>

#include "PcmSource.h"
#include "tessel/IAacSource.h"

namespace tessel::dualos {

class AacSource : public api::streaming::IAacSource, public PcmSource {
 public:
  using AacMediaInfo = api::streaming::common::AacMediaInfo;

  explicit AacSource(bool pull);

  void SetProfile(const char* name) override;
  void SetTargetChannels(int channels) override;
  void SetBandWidth(int hertz) override;
  AacMediaInfo GetAacMediaInfo() const override;
  void SetBitRate(int bits_per_second) override;
  void SetSampleRate(int samples_per_second) override;
  void SetChannels(int channels) override;

  std::string AppStringCreate0() override;
  // Stores the media description. On failure the fields read so far keep their new values.
  bool CbOpen(quill::base::object* obj, quill::stream::IMedia* media) override;

 protected:
  AacMediaInfo _aac;
  std::int32_t _bitRate = 128000;  // bits/s, requested
  std::string _profile = "LC";
  std::int32_t _bandWidth = 0;  // Hz
};

}  // namespace tessel::dualos
