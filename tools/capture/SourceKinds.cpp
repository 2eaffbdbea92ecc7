#include "SourceKinds.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "tessel/IAacSource.h"
#include "tessel/IH264Source.h"
#include "tessel/IJpegSource.h"
#include "tessel/IYuvSource.h"

#include "ErrorLog.h"
#include "SourceFormats.h"

namespace tessel::tool {
namespace {

using api::streaming::IAacSource;
using api::streaming::IH264Source;
using api::streaming::IJpegSource;
using api::streaming::IPcmSource;
using api::streaming::IYuvSource;
using api::streaming::common::IAudio;
using api::streaming::common::IBitRateControl;
using api::streaming::common::IEncoder;
using api::streaming::common::IH264;
using api::streaming::common::IStreamOutput;
using api::streaming::common::ITrigger;
using api::streaming::common::IVideoSource;
using api::streaming::common::IYuvDevice;
using quill::base::object;
using Source = CaptureSource;
using Value = SettingValue;

// Recognising a kind.

template <typename Interface>
bool Is(object& made, const std::string&) {
  return dynamic_cast<Interface*>(&made) != nullptr;
}

// IsSupport() would log a line for each source that has a constant rate.
bool IsVariable(object& made, const std::string&) {
  const auto* source = dynamic_cast<IH264Source*>(&made);
  if (source == nullptr) return false;
  const auto modes = source->BitRateControlSupportedList();
  return std::find(modes.begin(), modes.end(), IH264Source::kVariable) != modes.end();
}

// Its interfaces are those of the camera's raw source.
bool IsSynthetic(object& made, const std::string& class_name) {
  return class_name.ends_with("-fake") && Is<IYuvSource>(made, class_name);
}

// Reading its bit rate.

int NoBitRate(const Source&) { return 0; }
int MeasuredBitRate(const Source& source) { return source.control->GetCurrentBitRate(); }
int AacBitRate(const Source& source) { return source.As<IAacSource>().GetAacMediaInfo().bitrate; }

// The options that it takes, in groups that several kinds share.

template <typename Interface, auto kSet>
void SetNumber(Source& source, const Value& value) {
  (source.As<Interface>().*kSet)(value.number);
}

template <typename Interface, auto kSet>
void SetText(Source& source, const Value& value) {
  (source.As<Interface>().*kSet)(value.text);
}

// The source captures at the maximum, and reports the other rate.
void SetConstantRate(Source& source, const Value& value) {
  source.control->SetFrameRateMaximum(value.number);
  source.control->SetFrameRate(value.number);
}

// The synthetic source goes on reporting the rate that it was created with.
void SetSyntheticRate(Source& source, const Value& value) {
  source.raw_rate = value.number;
  source.As<IYuvDevice>().SetFrameRate(value.number);
}

constexpr SourceSetting kConstantH264[] = {{"fps", &SetConstantRate}};
constexpr SourceSetting kVariableH264[] = {
    {"fps", &SetNumber<IBitRateControl, &IBitRateControl::SetFrameRate>},
    {"capture-fps", &SetNumber<IBitRateControl, &IBitRateControl::SetFrameRateMaximum>},
};
constexpr SourceSetting kH264[] = {
    {"gop", &SetNumber<IH264, &IH264::SetGop>},
    {"goptype", &SetText<IH264, &IH264::SetGopType>},
    {"key-every"},
    {"key-at"},
    {"bitrate", &SetNumber<IEncoder, &IEncoder::SetBitRate>},
    {"bitrate-min", &SetNumber<IBitRateControl, &IBitRateControl::SetBitRateMinimum>},
    {"bitrate-max", &SetNumber<IBitRateControl, &IBitRateControl::SetBitRateMaximum>},
    {"qp", &SetNumber<IBitRateControl, &IBitRateControl::SetQP>},
    {"qp-min", &SetNumber<IBitRateControl, &IBitRateControl::SetQPMinimum>},
    {"qp-max", &SetNumber<IBitRateControl, &IBitRateControl::SetQPMaximum>},
};
constexpr SourceSetting kJpeg[] = {
    {"fps", &SetConstantRate},
    {"qp", &SetNumber<IBitRateControl, &IBitRateControl::SetQP>},
};
constexpr SourceSetting kPicture[] = {
    {"width", &SetNumber<IVideoSource, &IVideoSource::SetWidth>},
    {"height", &SetNumber<IVideoSource, &IVideoSource::SetHeight>},
};
constexpr SourceSetting kRawPicture[] = {
    {"width", &SetNumber<IYuvDevice, &IYuvDevice::SetWidth>},
    {"height", &SetNumber<IYuvDevice, &IYuvDevice::SetHeight>},
};
constexpr SourceSetting kFormat[] = {{"format", &SetText<IYuvDevice, &IYuvDevice::SetFormat>}};
constexpr SourceSetting kSynthetic[] = {{"fps", &SetSyntheticRate}};
constexpr SourceSetting kSensed[] = {{"sensor"}, {"once"}, {"unpaced"}};
constexpr SourceSetting kSound[] = {
    {"rate", &SetNumber<IAudio, &IAudio::SetSampleRate>},
    {"channels", &SetNumber<IAudio, &IAudio::SetChannels>},
    {"mic"},
    {"once"},
    {"unpaced"},
};
constexpr SourceSetting kAac[] = {
    {"bitrate", &SetNumber<IEncoder, &IEncoder::SetBitRate>},
    {"sound-bitrate", &SetNumber<IEncoder, &IEncoder::SetBitRate>},
    {"profile", &SetText<IAacSource, &IAacSource::SetProfile>},
    {"bandwidth", &SetNumber<IAacSource, &IAacSource::SetBandWidth>},
};

// The first that fits counts.
constexpr SourceKind kKinds[] = {
    {"H.264 video, variable rate",
     "an H.264 source of variable rate",
     MediaKind::kH264,
     &IsVariable,
     &ReadH264,
     &MeasuredBitRate,
     {kVariableH264, kH264, kPicture, kSensed}},
    {"H.264 video",
     "an H.264 source of constant rate",
     MediaKind::kH264,
     &Is<IH264Source>,
     &ReadH264,
     &MeasuredBitRate,
     {kConstantH264, kH264, kPicture, kSensed}},
    {"JPEG pictures",
     "a JPEG source",
     MediaKind::kJpeg,
     &Is<IJpegSource>,
     &ReadJpeg,
     &MeasuredBitRate,
     {kJpeg, kPicture, kSensed}},
    {"raw video, synthetic",
     "the synthetic source",
     MediaKind::kBytes,
     &IsSynthetic,
     &ReadRaw,
     &NoBitRate,
     {kSynthetic, kRawPicture}},
    {"raw video",
     "the raw source",
     MediaKind::kRaw,
     &Is<IYuvSource>,
     &ReadRaw,
     &NoBitRate,
     {kFormat, kRawPicture, kSensed}},
    {"AAC sound",
     "the AAC source",
     MediaKind::kAac,
     &Is<IAacSource>,
     &ReadAac,
     &AacBitRate,
     {kAac, kSound}},
    {"PCM sound",
     "the PCM source",
     MediaKind::kPcm,
     &Is<IPcmSource>,
     &ReadPcm,
     &NoBitRate,
     {kSound}},
};

}  // namespace

const SourceKind* KindOf(object& made, const std::string& class_name) {
  for (const SourceKind& row : kKinds) {
    if (row.is(made, class_name)) return &row;
  }
  return nullptr;
}

bool IsTakenBy(std::string_view option, bool is_sound) {
  return std::any_of(std::begin(kKinds), std::end(kKinds), [&](const SourceKind& kind) {
    return IsSound(kind.media) == is_sound && kind.Find(option) != nullptr;
  });
}

const CaptureSource& Addressed(std::span<const CaptureSource> sources, std::string_view option) {
  for (const CaptureSource& source : sources) {
    if (source.Takes(option)) return source;
  }
  // An option of video is refused for the video.
  const bool is_of_sound = !IsTakenBy(option, false);
  for (const CaptureSource& source : sources) {
    if (source.IsSound() == is_of_sound) return source;
  }
  return sources.front();
}

std::optional<CaptureSource> CreateSource(const std::string& class_name, const std::string& typed,
                                          std::string& error) {
  ErrorLog::Forget();
  object* made = quill::host::CreateObject(class_name.c_str(), "");
  if (made == nullptr) {
    error = "cannot create " + class_name + ": " + ErrorLog::LastReason();
    return std::nullopt;
  }
  CaptureSource source;
  source.name = typed;
  source.kind = KindOf(*made, class_name);
  source.stream = quill::host::Handle<IStreamOutput>(made);
  if (source.kind == nullptr || !source.stream) {
    error = "cannot capture " + class_name + ": it delivers neither video nor sound";
    return std::nullopt;
  }
  source.control = dynamic_cast<IBitRateControl*>(made);
  source.trigger = dynamic_cast<ITrigger*>(made);
  if (source.trigger != nullptr && !source.trigger->IsSupportSingleFrameTrigger()) {
    source.trigger = nullptr;
  }
  if (const auto* raw = dynamic_cast<IYuvDevice*>(made)) {
    source.raw_rate = raw->GetYuvMediaInfo().frameRate;
  }
  return source;
}

}  // namespace tessel::tool
