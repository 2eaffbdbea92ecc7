#include "StreamMedia.h"

#include <strings.h>

#include "H264Jump.h"
#include "quill/MediaKeys.h"

namespace quill::stream {
namespace {

MediaType TypeOf(const std::string& key) {
  for (const MediaKey& known : kMediaKeys) {
    if (key == known.name) return known.type;
  }
  return MediaType::kText;
}

std::vector<std::uint8_t> Unhex(const char* digits) {
  std::vector<std::uint8_t> bytes;
  const auto value = [](char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
  };
  for (; digits[0] != '\0' && digits[1] != '\0'; digits += 2) {
    const int high = value(digits[0]);
    const int low = value(digits[1]);
    if (high < 0 || low < 0) return {};
    bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
  }
  return bytes;
}

}  // namespace

StreamMedia::StreamMedia(const base::AttrSet& description) : _text(description.ToString(false)) {
  if (const char* codec = description.Get(media_key::kCodec)) _codec = codec;
  _texts.reserve(
      description.Pairs().size());  // its entries must not move: their addresses are parameters
  for (const auto& [key, value] : description.Pairs()) {
    const MediaType type = TypeOf(key);
    int number = 0;
    if (type == MediaType::kBytes) {
      AddHeader(description);
    } else if (type == MediaType::kText) {
      _texts.push_back(value);
      AddValue<const char*>(key.c_str(), _texts.back().c_str());
    } else if (base::ConvertToImpl(value.c_str(), number)) {
      AddValue<int>(key.c_str(), number);
    }
  }
  if (strcasecmp(_codec.c_str(), "h264") != 0) return;
  using tessel::api::streaming::common::JumpToData;
  AddValue<JumpToData>("jump", &JumpToSlice);
  AddValue<JumpToData>("jump_bs", &JumpToSliceByteStream);
  AddValue<JumpToData>("jump_avc", &JumpToSliceAvc);
}

void StreamMedia::AddHeader(const base::AttrSet& description) {
  _header = Unhex(description.Get(media_key::kHeader));
  const auto add = [&](const char* name, const char* offset_key, const char* size_key) {
    unsigned offset = 0;
    unsigned size = 0;
    if (!description.Get(offset_key, offset) || !description.Get(size_key, size)) return;
    if (offset > _header.size() || size > _header.size() - offset) return;
    AddValue<void*>(name, _header.data() + offset);
  };
  add("sps", media_key::kSpsOffset, media_key::kSpsBytes);
  add("pps", media_key::kPpsOffset, media_key::kPpsBytes);
}

bool StreamMedia::IsCodec(const char* name) const {
  return name != nullptr && !_codec.empty() && strcasecmp(_codec.c_str(), name) == 0;
}

}  // namespace quill::stream
