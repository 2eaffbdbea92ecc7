#include "StreamMedia.h"

#include <strings.h>

#include "H264Jump.h"

namespace quill::stream {
namespace {

// Parameters that are numbers; every other one is text. Shared by all codecs.
constexpr const char* kNumbers[] = {
    "w",  "h",       "fr",      "gop",     "spsoffset", "isps",    "ppsoffset", "ipps",  "rate",
    "ch", "profile", "version", "rateidx", "adtslen",   "bitrate", "bits",      "block",
};

bool IsNumber(const std::string& key) {
  for (const char* number : kNumbers) {
    if (key == number) return true;
  }
  return false;
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
  if (const char* codec = description.Get("codec")) _codec = codec;
  _texts.reserve(
      description.Pairs().size());  // its entries must not move: their addresses are parameters
  for (const auto& [key, value] : description.Pairs()) {
    int number = 0;
    if (key == "header") {
      AddHeader(description);
    } else if (!IsNumber(key)) {
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
  _header = Unhex(description.Get("header"));
  const auto add = [&](const char* name, const char* offset_key, const char* size_key) {
    unsigned offset = 0;
    unsigned size = 0;
    if (!description.Get(offset_key, offset) || !description.Get(size_key, size)) return;
    if (offset > _header.size() || size > _header.size() - offset) return;
    AddValue<void*>(name, _header.data() + offset);
  };
  add("sps", "spsoffset", "isps");
  add("pps", "ppsoffset", "ipps");
}

bool StreamMedia::IsCodec(const char* name) const {
  return name != nullptr && !_codec.empty() && strcasecmp(_codec.c_str(), name) == 0;
}

}  // namespace quill::stream
