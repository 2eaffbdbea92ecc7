#include "Kinds.h"

#include <algorithm>

#include "tessel/IAacSource.h"
#include "tessel/IH264Source.h"
#include "tessel/IJpegSource.h"
#include "tessel/IYuvSource.h"

namespace tessel::tool {
namespace {

using api::streaming::IH264Source;
using quill::base::object;

template <typename Interface>
bool Is(object& made, const std::string&) {
  return dynamic_cast<Interface*>(&made) != nullptr;
}

// Asking IsSupport() would leave a line in the log for each source that has a constant rate.
bool IsVariable(object& made, const std::string&) {
  const auto* source = dynamic_cast<IH264Source*>(&made);
  if (source == nullptr) return false;
  const auto modes = source->BitRateControlSupportedList();
  return std::find(modes.begin(), modes.end(), IH264Source::kVariable) != modes.end();
}

// No interface tells it from the camera's raw source.
bool IsSynthetic(object& made, const std::string& class_name) {
  return class_name.ends_with("-fake") && Is<api::streaming::IYuvSource>(made, class_name);
}

// The first that fits counts.
constexpr KindRow kKinds[] = {
    {kH264Variable, "H.264 video, variable rate", "an H.264 source of variable rate", &IsVariable},
    {kH264, "H.264 video", "an H.264 source of constant rate", &Is<IH264Source>},
    {kJpeg, "JPEG pictures", "a JPEG source", &Is<api::streaming::IJpegSource>},
    {kSynthetic, "raw video, synthetic", "the synthetic source", &IsSynthetic},
    {kRaw, "raw video", "the raw source", &Is<api::streaming::IYuvSource>},
    {kAac, "AAC sound", "the AAC source", &Is<api::streaming::IAacSource>},
    {kPcm, "PCM sound", "the PCM source", &Is<api::streaming::IPcmSource>},
};

}  // namespace

const KindRow* KindOf(object& made, const std::string& class_name) {
  for (const KindRow& row : kKinds) {
    if (row.is(made, class_name)) return &row;
  }
  return nullptr;
}

}  // namespace tessel::tool
