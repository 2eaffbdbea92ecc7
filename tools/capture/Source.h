// A source of video or sound, seen through the interfaces it has.
#pragma once

#include <cstdint>
#include <string>

#include "quill/Host.h"
#include "tessel/IAacSource.h"
#include "tessel/IBitRateControl.h"
#include "tessel/IH264Source.h"
#include "tessel/IJpegSource.h"
#include "tessel/IYuvSource.h"

#include "Kinds.h"
#include "MediaFormat.h"

namespace tessel::tool {

inline constexpr std::int64_t kSecondNs = 1'000'000'000;

// Holds the source; the rest are faces of it, null where it has none. Client's thread.
struct Source {
  // False, with `error` saying why, when `class_name` cannot be created or delivers neither video
  // nor sound. `typed` is what the user called it.
  [[nodiscard]] bool Create(const std::string& class_name, const std::string& typed,
                            std::string& error);

  bool IsSound() const { return kind->IsSound(); }
  void SetWidth(int pixels) const;
  void SetHeight(int pixels) const;
  // A source that is thinned goes on capturing at the rate it captures at.
  void SetFrameRate(int frames_per_second);
  int FramesPerSecond() const;  // of video
  int BitRate() const;          // bits/s as its encoder measured or announced it; 0 without one
  // REQUIRES: it is open.
  MediaFormat Format() const;

  std::string name;
  const KindRow* kind = nullptr;
  quill::host::Handle<api::streaming::common::IStreamOutput> stream;
  api::streaming::common::IEncoder* encoder = nullptr;
  api::streaming::common::IBitRateControl* control = nullptr;
  api::streaming::common::ITrigger* trigger = nullptr;  // null also where it has no effect
  api::streaming::common::IVideoSource* video = nullptr;
  api::streaming::common::IH264* h264 = nullptr;
  api::streaming::common::IYuvDevice* raw = nullptr;
  api::streaming::IJpegSource* jpeg = nullptr;
  api::streaming::common::IAudio* sound = nullptr;
  api::streaming::IPcmSource* pcm = nullptr;  // AAC sources too
  api::streaming::IAacSource* aac = nullptr;
  int raw_rate = 0;  // frames/s of video, where there is no `control`
};

}  // namespace tessel::tool
