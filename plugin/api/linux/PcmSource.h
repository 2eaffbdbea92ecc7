// Sound from the real-time side's microphone, as PCM samples.
#pragma once

#include "common/StreamAppOutput.h"
#include "tessel/IPcmSource.h"

namespace tessel::dualos {

class PcmSource : public virtual api::streaming::IPcmSource, public StreamAppOutput {
 public:
  using PcmMediaInfo = api::streaming::common::PcmMediaInfo;

  explicit PcmSource(bool pull);
  ~PcmSource() override;

  void SetSampleRate(int samples_per_second) override;
  void SetChannels(int channels) override;
  bool SelectMicrophone(const char* name) override;
  dev::IMicrophone* Microphone() override;
  PcmMediaInfo GetPcmMediaInfo() const override;

  std::string AppStringCreate0() override;
  bool CbOpen(quill::base::object* obj, quill::stream::IMedia* media) override;

 protected:
  dev::IMicrophone* _mic = nullptr;  // borrowed; the host owns it
  PcmMediaInfo _pcm;
};

}  // namespace tessel::dualos
