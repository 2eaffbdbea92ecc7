// A video source of any kind, seen through the interfaces it has.
#pragma once

#include <string>

#include "quill/Host.h"
#include "tessel/IBitRateControl.h"
#include "tessel/IH264Source.h"
#include "tessel/IJpegSource.h"
#include "tessel/IYuvSource.h"

#include "Kinds.h"
#include "MediaWriter.h"

namespace tessel::tool {

// Holds the source; the rest are faces of it, null where it has none. Client's thread.
struct VideoSource {
  // False, with `error` saying why, when `class_name` cannot be created or delivers no video.
  [[nodiscard]] bool Create(const std::string& class_name, std::string& error);

  void SetWidth(int pixels) const;
  void SetHeight(int pixels) const;
  // A source that is thinned goes on capturing at the rate it captures at.
  void SetFrameRate(int frames_per_second);
  int FramesPerSecond() const;
  int BitRate() const;  // bits/s as its encoder measured it; 0 without one
  // REQUIRES: it is open.
  VideoFormat Format() const;

  const KindRow* kind = nullptr;
  quill::host::Handle<api::streaming::common::IStreamOutput> stream;
  api::streaming::common::IBitRateControl* control = nullptr;
  api::streaming::common::ITrigger* trigger = nullptr;  // null also where it has no effect
  api::streaming::common::IVideoSource* video = nullptr;
  api::streaming::common::IH264* h264 = nullptr;
  api::streaming::common::IYuvDevice* raw = nullptr;
  api::streaming::IJpegSource* jpeg = nullptr;
  int raw_rate = 0;  // frames/s, where there is no `control`
};

}  // namespace tessel::tool
