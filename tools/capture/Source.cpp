#include "Source.h"

#include <iterator>
#include <utility>
#include <vector>

#include "ErrorLog.h"

namespace tessel::tool {
namespace {

using api::streaming::common::AacMediaInfo;
using api::streaming::common::H264MediaInfo;

// The first frame of an AAC stream only prepares the decoder for the second.
constexpr int kAacPriming = kAacFrame;

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

// ISO/IEC 14496-3, AudioSpecificConfig: 5 bits object type, 4 sampling frequency index, 4 channel
// configuration, and three zeros: 1024 samples a frame, nothing that this depends on, no extension.
std::vector<std::uint8_t> AudioConfig(const AacMediaInfo& info) {
  const auto bits = static_cast<unsigned>(info.profile) << 11 |
                    static_cast<unsigned>(info.rateidx) << 7 |
                    static_cast<unsigned>(info.channels) << 3;
  return {static_cast<std::uint8_t>(bits >> 8), static_cast<std::uint8_t>(bits)};
}

}  // namespace

bool Source::Create(const std::string& class_name, const std::string& typed, std::string& error) {
  using quill::base::object;
  name = typed;
  ErrorLog::Forget();
  object* made = quill::host::CreateObject(class_name.c_str(), "");
  if (made == nullptr) {
    error = "cannot create " + class_name + ": " + ErrorLog::LastReason();
    return false;
  }
  kind = KindOf(*made, class_name);
  stream = quill::host::Handle<api::streaming::common::IStreamOutput>(made);
  if (kind == nullptr || !stream) {
    error = "cannot capture " + class_name + ": it delivers neither video nor sound";
    return false;
  }
  encoder = dynamic_cast<decltype(encoder)>(made);
  control = dynamic_cast<decltype(control)>(made);
  trigger = dynamic_cast<decltype(trigger)>(made);
  if (trigger != nullptr && !trigger->IsSupportSingleFrameTrigger()) trigger = nullptr;
  video = dynamic_cast<decltype(video)>(made);
  h264 = dynamic_cast<decltype(h264)>(made);
  raw = dynamic_cast<decltype(raw)>(made);
  jpeg = dynamic_cast<decltype(jpeg)>(made);
  sound = dynamic_cast<decltype(sound)>(made);
  pcm = dynamic_cast<decltype(pcm)>(made);
  aac = dynamic_cast<decltype(aac)>(made);
  if (raw != nullptr) raw_rate = raw->GetYuvMediaInfo().frameRate;
  return true;
}

void Source::SetWidth(int pixels) const {
  raw != nullptr ? raw->SetWidth(pixels) : video->SetWidth(pixels);
}

void Source::SetHeight(int pixels) const {
  raw != nullptr ? raw->SetHeight(pixels) : video->SetHeight(pixels);
}

void Source::SetFrameRate(int frames_per_second) {
  if (control == nullptr) {
    raw_rate = frames_per_second;  // what the synthetic source reports stays as it was
    raw->SetFrameRate(frames_per_second);
    return;
  }
  // The maximum is the rate that the sensor is held to, the other one the rate that is reported.
  if (kind->kind != kH264Variable) control->SetFrameRateMaximum(frames_per_second);
  control->SetFrameRate(frames_per_second);
}

int Source::FramesPerSecond() const {
  return control != nullptr ? control->GetCurrentFrameRate() : raw_rate;
}

int Source::BitRate() const {
  if (aac != nullptr) return aac->GetAacMediaInfo().bitrate;
  return control != nullptr ? control->GetCurrentBitRate() : 0;
}

MediaFormat Source::Format() const {
  MediaFormat format;
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
  } else if (raw != nullptr) {
    const auto info = raw->GetYuvMediaInfo();
    format.width = info.width;
    format.height = info.height;
    format.pixel_format = info.format;
  } else if (aac != nullptr) {
    const AacMediaInfo info = aac->GetAacMediaInfo();
    format.rate = info.rate;
    format.channels = info.channels;
    format.bit_rate_bps = info.bitrate;
    format.header = AudioConfig(info);
    format.priming_samples = kAacPriming;
    format.adts_bytes = info.adtsLength;
  } else {
    const auto info = pcm->GetPcmMediaInfo();
    format.rate = info.sampleRate;
    format.channels = info.channels;
  }
  return format;
}

}  // namespace tessel::tool
