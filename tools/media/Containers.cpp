#include "Containers.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

namespace tessel::tool {
namespace {

using enum MediaKind;

constexpr MediaKind kInMp4[] = {kH264, kJpeg, kAac};
constexpr MediaKind kInMatroska[] = {kH264, kJpeg, kPcm, kAac};
constexpr MediaKind kH264Only[] = {kH264};
constexpr MediaKind kJpegOnly[] = {kJpeg};
constexpr MediaKind kRawOnly[] = {kRaw};
constexpr MediaKind kAnyBytes[] = {kRaw, kBytes};
constexpr MediaKind kPcmOnly[] = {kPcm};
constexpr MediaKind kAacOnly[] = {kAac};

constexpr Container kContainers[] = {
    {".mp4", "mp4", kInMp4, false, true, ".mp4"},
    {".mkv", "matroska", kInMatroska, false, true, ".mkv"},
    {".h264", "h264", kH264Only, true, false, ".h264"},
    {".mjpeg", "mjpeg", kJpegOnly, true, false, ".mjpeg"},
    {".jpg", "image2", kJpegOnly, false, false, "numbered .jpg"},
    {".y4m", "yuv4mpegpipe", kRawOnly, false, false, ".y4m"},
    {".yuv", "rawvideo", kAnyBytes, true, false, ".yuv"},
    {".wav", "wav", kPcmOnly, false, false, ".wav"},
    {".pcm", "s16le", kPcmOnly, true, false, ".pcm"},
    {".m4a", "ipod", kAacOnly, false, false, ".m4a"},
    {".aac", "adts", kAacOnly, true, false, ".aac"},
};
// Two streams are piped in this one: writing it never seeks back.
constexpr const Container& kPiped = kContainers[1];

// Formats that the real-time side names differently from FFmpeg.
struct FormatRow {
  const char* name;
  AVPixelFormat format;
};
constexpr FormatRow kFormats[] = {
    {"420v50", AV_PIX_FMT_YUV420P},
    {"i420", AV_PIX_FMT_YUV420P},
    {"y800", AV_PIX_FMT_GRAY8},
};

// A container that keeps planes apart. Deeper samples would need a dialect that few players know.
constexpr char kPlanarMuxer[] = "yuv4mpegpipe";
constexpr AVPixelFormat kPlanarFormats[] = {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P,
                                            AV_PIX_FMT_YUV444P, AV_PIX_FMT_GRAY8};

bool IsBoth(std::span<const MediaKind> kinds) {
  return std::any_of(kinds.begin(), kinds.end(), IsSound) &&
         !std::all_of(kinds.begin(), kinds.end(), IsSound);
}

bool Takes(const Container& container, std::span<const MediaKind> kinds) {
  const auto is_taken = [&container](MediaKind kind) {
    return std::find(container.kinds.begin(), container.kinds.end(), kind) != container.kinds.end();
  };
  return std::all_of(kinds.begin(), kinds.end(), is_taken) &&
         (container.takes_both || !IsBoth(kinds));
}

}  // namespace

const Container* FindContainer(const std::string& path, std::span<const MediaKind> kinds) {
  const std::string extension = std::filesystem::path(path).extension().string();
  const bool is_bare = path == kStandardOutput || path == kNowhere;
  if (is_bare && IsBoth(kinds)) return Takes(kPiped, kinds) ? &kPiped : nullptr;
  for (const Container& container : kContainers) {
    if (!Takes(container, kinds)) continue;
    if (is_bare ? container.is_bare : extension == container.extension) return &container;
  }
  return nullptr;
}

std::string ContainersOf(std::span<const MediaKind> kinds) {
  std::string text;
  std::string last;
  for (const Container& container : kContainers) {
    if (!Takes(container, kinds)) continue;
    if (!last.empty()) text += (text.empty() ? "" : ", ") + last;
    last = container.hint;
  }
  return text.empty() ? last : text + " or " + last;
}

int PixelFormat(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  for (const FormatRow& row : kFormats) {
    if (name == row.name) return row.format;
  }
  return av_get_pix_fmt(name.c_str());
}

bool TakesFormat(const Container& container, const std::string& pixel_format, std::string& error) {
  if (!IsPlanar(container)) return true;
  const int format = PixelFormat(pixel_format);
  std::string known = "420V50, i420";
  for (const AVPixelFormat planar : kPlanarFormats) {
    if (format == planar) return true;
    known += std::string(", ") + av_get_pix_fmt_name(planar);
  }
  error = pixel_format + " does not go into " + container.extension + ", which takes " + known +
          "; .yuv takes every format";
  return false;
}

bool IsPlanar(const Container& container) { return container.muxer == std::string(kPlanarMuxer); }

bool IsPictures(const Container& container) { return container.muxer == std::string("image2"); }

bool IsPattern(const std::string& path) {
  // The library cuts off numbers that are wider than its buffer.
  constexpr unsigned long kMostDigits = 9;
  std::size_t at = path.find('%');
  while (at != path.npos && path.compare(at, 2, "%%") == 0) at = path.find('%', at + 2);
  if (at == path.npos || std::strtoul(path.c_str() + at + 1, nullptr, 10) > kMostDigits)
    return false;
  return av_filename_number_test(path.c_str()) != 0;
}

}  // namespace tessel::tool
