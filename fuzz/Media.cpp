// The description of a stream's media as the real-time side writes it, in the first line, and
// behind it an H.264 frame for the functions that find its picture data.
#include "H264Jump.h"
#include "Input.h"
#include "StreamMedia.h"

namespace tessel::fuzz {
namespace {

using quill::base::AttrSet;
using tessel::api::streaming::common::JumpToData;

void Jump(JumpToData jump, std::span<const std::uint8_t> frame) {
  const auto size_bytes = static_cast<std::uint32_t>(frame.size());
  // Memory of its own: what lies behind its end is watched.
  const std::vector<std::uint8_t> bytes(frame.begin(), frame.end());
  std::uint32_t left = 0;
  const std::uint8_t* slice = jump(bytes.data(), size_bytes, &left);
  Require(jump(bytes.data(), size_bytes, nullptr) == slice, "the size is no condition");
  Require(jump(nullptr, size_bytes, &left) == nullptr, "without a frame nothing is found");
  if (slice == nullptr) return;
  Require(slice >= bytes.data() && slice + left == bytes.data() + size_bytes, "inside the frame");
  Touch(std::as_bytes(std::span(slice, left)));
}

}  // namespace

int FuzzMedia(const std::uint8_t* data, std::size_t size_bytes) {
  using quill::stream::StreamMedia;
  Input input(data, size_bytes);
  const AttrSet description(input.Line().c_str());
  auto* media = new StreamMedia(description);
  for (const auto& [key, value] : description.Pairs()) {
    int number = 0;
    const char* text = nullptr;
    void* bytes = nullptr;
    media->Get(key.c_str(), number);
    if (media->Get(key.c_str(), text)) Require(value == text, "a text as it was described");
    media->Get(key.c_str(), bytes);
  }
  unsigned sps_bytes = 0;
  void* sps = nullptr;
  if (media->Get("sps", sps) && description.Get("isps", sps_bytes)) {
    Touch({static_cast<std::byte*>(sps), sps_bytes});
  }
  unsigned pps_bytes = 0;
  void* pps = nullptr;
  if (media->Get("pps", pps) && description.Get("ipps", pps_bytes)) {
    Touch({static_cast<std::byte*>(pps), pps_bytes});
  }
  JumpToData jump = nullptr;
  const bool is_taken = description.Get("jump") != nullptr;
  Require(media->Get("jump", jump) == (media->IsCodec("h264") && !is_taken), "jumps of H.264");
  Touch(media->ToString());
  media->Release();
  const auto frame = input.Bytes(input.Size());
  Jump(&quill::stream::JumpToSlice, frame);
  Jump(&quill::stream::JumpToSliceByteStream, frame);
  Jump(&quill::stream::JumpToSliceAvc, frame);
  return 0;
}

}  // namespace tessel::fuzz
