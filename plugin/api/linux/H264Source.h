// An H.264 elementary stream from the real-time side's encoder.
#pragma once

#include "common/StreamAppOutput.h"
#include "common/StreamVbrc.h"
#include "tessel/IH264Source.h"

namespace tessel::dualos {

// Variants derive from this class and compose another chain.
class H264Source : public StreamAppOutput, public StreamVbrc, public api::streaming::IH264Source {
 public:
  using H264MediaInfo = api::streaming::common::H264MediaInfo;

  explicit H264Source(bool pullMode);

  void SelectSensor(int index) override;  // stored only: the board has one sensor
  void SetWidth(int pixels) override;
  void SetHeight(int pixels) override;
  void SetGop(int frames) override;
  void SetGopType(const char* pattern) override;
  H264MediaInfo GetH264MediaInfo() const override;
  void ForceKeyFrame() override;
  bool IsSupportSingleFrameTrigger() const override;
  void Trigger() override;

  std::string AppStringCreate0() override;
  // Stores the media description. On failure the fields read so far keep their new values.
  bool CbOpen(quill::base::object* sink, quill::stream::IMedia* media) override;

 protected:
  int _sensor = 0;
  H264MediaInfo _h264 = {};
};

}  // namespace tessel::dualos
