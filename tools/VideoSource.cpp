#include "VideoSource.h"

#include <cstdint>
#include <iterator>
#include <utility>

#include "ErrorLog.h"

namespace tessel::tool {
namespace {

using api::streaming::common::H264MediaInfo;

// SPS and PPS, each behind a start code.
std::vector<std::uint8_t> StreamHeader(const H264MediaInfo& info) {
  constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};
  std::vector<std::uint8_t> header;
  const std::pair<const void*, int> units[] = {{info.sps, info.spsSize}, {info.pps, info.ppsSize}};
  for (const auto& [unit, size_bytes] : units) {
    const auto* bytes = static_cast<const std::uint8_t*>(unit);
    header.insert(header.end(), std::begin(kStartCode), std::end(kStartCode));
    header.insert(header.end(), bytes, bytes + size_bytes);
  }
  return header;
}

}  // namespace

bool VideoSource::Create(const std::string& class_name, std::string& error) {
  using quill::base::object;
  ErrorLog::Forget();
  object* made = quill::host::CreateObject(class_name.c_str(), "");
  if (made == nullptr) {
    error = "cannot create " + class_name + ": " + ErrorLog::LastReason();
    return false;
  }
  kind = KindOf(*made, class_name);
  stream = quill::host::Handle<api::streaming::common::IStreamOutput>(made);
  if (kind == nullptr || !stream) {
    error = "cannot capture " + class_name + ": it delivers no video";
    return false;
  }
  control = dynamic_cast<decltype(control)>(made);
  trigger = dynamic_cast<decltype(trigger)>(made);
  if (trigger != nullptr && !trigger->IsSupportSingleFrameTrigger()) trigger = nullptr;
  video = dynamic_cast<decltype(video)>(made);
  h264 = dynamic_cast<decltype(h264)>(made);
  raw = dynamic_cast<decltype(raw)>(made);
  jpeg = dynamic_cast<decltype(jpeg)>(made);
  if (raw != nullptr) raw_rate = raw->GetYuvMediaInfo().frameRate;
  return true;
}

void VideoSource::SetWidth(int pixels) const {
  raw != nullptr ? raw->SetWidth(pixels) : video->SetWidth(pixels);
}

void VideoSource::SetHeight(int pixels) const {
  raw != nullptr ? raw->SetHeight(pixels) : video->SetHeight(pixels);
}

void VideoSource::SetFrameRate(int frames_per_second) {
  if (control == nullptr) {
    raw_rate = frames_per_second;  // what the synthetic source reports stays as it was
    raw->SetFrameRate(frames_per_second);
    return;
  }
  // The maximum is the rate that the sensor is held to, the other one the rate that is reported.
  if (kind->kind != kH264Variable) control->SetFrameRateMaximum(frames_per_second);
  control->SetFrameRate(frames_per_second);
}

int VideoSource::FramesPerSecond() const {
  return control != nullptr ? control->GetCurrentFrameRate() : raw_rate;
}

int VideoSource::BitRate() const { return control != nullptr ? control->GetCurrentBitRate() : 0; }

VideoFormat VideoSource::Format() const {
  VideoFormat format;
  format.kind = kind->kind;
  // Triggered frames come as they are asked for.
  format.frames_per_second = trigger == nullptr ? FramesPerSecond() : 0;
  if (h264 != nullptr) {
    const H264MediaInfo info = h264->GetH264MediaInfo();
    format.width = info.width;
    format.height = info.height;
    format.header = StreamHeader(info);
  } else if (jpeg != nullptr) {
    const auto [width, height] = jpeg->GetJpegMediaInfo();
    format.width = width;
    format.height = height;
  } else {
    const auto info = raw->GetYuvMediaInfo();
    format.width = info.width;
    format.height = info.height;
    format.pixel_format = info.format;
  }
  return format;
}

}  // namespace tessel::tool
