#include "CaptureSource.h"

namespace tessel::tool {

void CaptureSource::Set(std::string_view option, const SettingValue& value) {
  const SourceSetting* setting = kind->Find(option);
  if (setting != nullptr && setting->set != nullptr) setting->set(*this, value);
}

int CaptureSource::FramesPerSecond() const {
  return control != nullptr ? control->GetCurrentFrameRate() : raw_rate;
}

MediaFormat CaptureSource::Format() const {
  MediaFormat format = kind->read(*this);
  format.kind = kind->media;
  // Triggered frames have no rate of their own.
  format.frames_per_second = trigger == nullptr ? FramesPerSecond() : 0;
  return format;
}

}  // namespace tessel::tool
