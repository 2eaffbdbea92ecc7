#include "StreamKind.h"

#include <sstream>
#include <string_view>

#include "quill/MediaKeys.h"

namespace tessel::tool {
namespace {

using quill::host::RtosStream;

bool HasElement(const RtosStream& stream, std::string_view class_name) {
  std::istringstream chain(stream.chain);
  for (std::string element; std::getline(chain, element, '+');) {
    if (element == class_name) return true;
  }
  return false;
}

}  // namespace

std::string StreamKind(const RtosStream& stream) {
  const auto codec = stream.media.find(quill::stream::media_key::kCodec);
  std::string kind = codec == stream.media.end() ? "stream" : codec->second;
  if (HasElement(stream, "H264VBrc")) kind += "-vbrc";
  if (HasElement(stream, "FrameTrigger")) kind += "-trigger";
  return kind;
}

bool IsThinned(const RtosStream& stream) { return HasElement(stream, "FrameDroper"); }

}  // namespace tessel::tool
