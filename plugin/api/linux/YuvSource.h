// Raw pictures from the real-time side's camera.
#pragma once

#include "common/StreamAppOutput.h"
#include "common/YuvDevice.h"
#include "tessel/IYuvSource.h"

namespace tessel::dualos {

class YuvSource : public StreamAppOutput,
                  public api::streaming::IYuvSource,
                  public api::streaming::common::YuvDevice {
 public:
  explicit YuvSource(bool pullMode) : StreamAppOutput(pullMode) {}

  std::string AppStringCreate0() override;
  // Stores the delivered size and format. On failure the fields read so far keep their new values.
  bool CbOpen(quill::base::object* sink, quill::stream::IMedia* media) override;
  void SelectSensor(int index) override;  // stored only: the board has one sensor

  // IYuvSource declares these again; they forward to the base classes.
  void SetFrameRate(int frames_per_second) override { YuvDevice::SetFrameRate(frames_per_second); }
  bool Open() override { return StreamAppOutput::Open(); }
  bool Close() override { return StreamAppOutput::Close(); }
  bool Start() override { return StreamAppOutput::Start(); }
  bool Stop() override { return StreamAppOutput::Stop(); }

 private:
  int _sensor = 0;
};

}  // namespace tessel::dualos
