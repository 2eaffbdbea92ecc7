// JPEG pictures from the real-time side's encoder.
#pragma once

#include "common/StreamAppOutput.h"
#include "common/StreamVbrc.h"
#include "tessel/IJpegSource.h"

namespace tessel::dualos {

class JpegSource : public StreamAppOutput, public StreamVbrc, public api::streaming::IJpegSource {
 public:
  using JpegMediaInfo = api::streaming::common::JpegMediaInfo;

  explicit JpegSource(bool pullMode);

  void SelectSensor(int index) override;  // stored only: the board has one sensor
  void SetWidth(int pixels) override;
  void SetHeight(int pixels) override;
  JpegMediaInfo GetJpegMediaInfo() const override;
  bool IsSupportSingleFrameTrigger() const override;
  void Trigger() override;

  std::string AppStringCreate0() override;
  // Stores the delivered size. On failure a width that was read keeps its new value.
  bool CbOpen(quill::base::object* sink, quill::stream::IMedia* media) override;

 protected:
  int _sensor = 0;
  JpegMediaInfo _jpeg = {.width = 1920, .height = 1080};
};

}  // namespace tessel::dualos
