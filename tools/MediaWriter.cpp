#include "MediaWriter.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace tessel::tool {

struct Container {
  const char* extension;
  const char* muxer;
  unsigned kinds;    // that go into it
  bool is_bare;      // nothing but the frames, one behind the other
  const char* hint;  // the extension as it is told
};

namespace {

constexpr Container kContainers[] = {
    {".mp4", "mp4", kAnyH264 | kJpeg, false, ".mp4"},
    {".mkv", "matroska", kAnyH264 | kJpeg, false, ".mkv"},
    {".h264", "h264", kAnyH264, true, ".h264"},
    {".mjpeg", "mjpeg", kJpeg, true, ".mjpeg"},
    {".jpg", "image2", kJpeg, false, "numbered .jpg"},
    {".y4m", "yuv4mpegpipe", kRaw, false, ".y4m"},
    {".yuv", "rawvideo", kRaw | kSynthetic, true, ".yuv"},
};

// What the real-time side calls differently from FFmpeg.
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

constexpr AVRational kNanoseconds = {1, 1'000'000'000};
// Fine enough for any frame rate, and a gap of hours still fits into the 32 bits of a duration.
constexpr AVRational kTicks = {1, 90'000};

std::string Reason(int failure) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(failure, text, sizeof text);
  return text;
}

// Whether a frame begins with what a decoder has to know first.
bool HasParameterSets(const MediaWriter::frame_t& frame) {
  constexpr int kSliceEnd = 5;
  constexpr int kSps = 7;
  for (std::uint32_t i = 0; i + 3 < frame.size; ++i) {
    if (frame.data[i] != 0 || frame.data[i + 1] != 0 || frame.data[i + 2] != 1) continue;
    const int type = frame.data[i + 3] & 0x1f;
    if (type == kSps) return true;
    if (type >= 1 && type <= kSliceEnd) return false;
  }
  return false;
}

bool IsPlanar(const Container& container) { return container.muxer == std::string(kPlanarMuxer); }

AVPixelFormat PixelFormat(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  for (const FormatRow& row : kFormats) {
    if (name == row.name) return row.format;
  }
  return av_get_pix_fmt(name.c_str());
}

// What the frames are to the muxer.
AVCodecID CodecOf(const Container& container, Kind kind) {
  if (kind == kJpeg) return AV_CODEC_ID_MJPEG;
  if ((kind & kAnyH264) != 0) return AV_CODEC_ID_H264;
  return IsPlanar(container) ? AV_CODEC_ID_WRAPPED_AVFRAME : AV_CODEC_ID_RAWVIDEO;
}

}  // namespace

const Container* FindContainer(const std::string& path, unsigned kinds) {
  const std::string extension = std::filesystem::path(path).extension().string();
  const bool is_bare = path == kStandardOutput || path == kNowhere;
  for (const Container& container : kContainers) {
    if ((container.kinds & kinds) == 0) continue;
    if (is_bare ? container.is_bare : extension == container.extension) return &container;
  }
  return nullptr;
}

std::string ContainersOf(unsigned kinds) {
  std::string text;
  std::string last;
  for (const Container& container : kContainers) {
    if ((container.kinds & kinds) == 0) continue;
    if (!last.empty()) text += (text.empty() ? "" : ", ") + last;
    last = container.hint;
  }
  return text.empty() ? last : text + " or " + last;
}

bool TakesFormat(const Container& container, const std::string& pixel_format, std::string& error) {
  if (!IsPlanar(container)) return true;
  const AVPixelFormat format = PixelFormat(pixel_format);
  std::string known = "420V50, i420";
  for (const AVPixelFormat planar : kPlanarFormats) {
    if (format == planar) return true;
    known += std::string(", ") + av_get_pix_fmt_name(planar);
  }
  error = pixel_format + " does not go into " + container.extension + ", which takes " + known +
          "; .yuv takes every format";
  return false;
}

bool IsPictures(const Container& container) { return container.muxer == std::string("image2"); }

bool IsPattern(const std::string& path) { return av_filename_number_test(path.c_str()) != 0; }

std::unique_ptr<MediaWriter> MediaWriter::Open(const Container& container, const std::string& path,
                                               const VideoFormat& format, std::string& error) {
  std::unique_ptr<MediaWriter> writer(new MediaWriter);
  return writer->Begin(container, path, format, error) ? std::move(writer) : nullptr;
}

bool MediaWriter::Begin(const Container& container, const std::string& path,
                        const VideoFormat& format, std::string& error) {
  av_log_set_level(AV_LOG_QUIET);  // reasons are handed back
  // The prefix keeps a colon in a name from being read as the scheme of a URL.
  const std::string url = path == kStandardOutput ? "pipe:1" : "file:" + path;
  const int made = avformat_alloc_output_context2(&_format, nullptr, container.muxer, url.c_str());
  if (!Check(made, error)) return false;
  _packet = av_packet_alloc();
  if (_packet == nullptr || !AddStream(container, format)) return Check(AVERROR(ENOMEM), error);
  if (container.is_bare) _leading = format.header;

  const bool opens_files = (_format->oformat->flags & AVFMT_NOFILE) != 0;
  if (!opens_files && !Check(avio_open(&_format->pb, url.c_str(), AVIO_FLAG_WRITE), error)) {
    return false;
  }
  // Whoever reads from a pipe wants each frame when it comes.
  if (path == kStandardOutput) _format->flags |= AVFMT_FLAG_FLUSH_PACKETS;
  if (!Check(avformat_write_header(_format, nullptr), error)) return false;
  _is_begun = true;
  return true;
}

bool MediaWriter::AddStream(const Container& container, const VideoFormat& format) {
  AVStream* stream = avformat_new_stream(_format, nullptr);
  if (stream == nullptr) return false;
  stream->time_base = kTicks;
  stream->avg_frame_rate = {format.frames_per_second, 1};
  AVCodecParameters& codec = *stream->codecpar;
  codec.codec_type = AVMEDIA_TYPE_VIDEO;
  codec.codec_id = CodecOf(container, format.kind);
  codec.width = format.width;
  codec.height = format.height;
  if (format.kind == kJpeg) {
    // What JFIF says of every picture.
    codec.format = AV_PIX_FMT_YUVJ420P;
    codec.color_range = AVCOL_RANGE_JPEG;
    codec.color_space = AVCOL_SPC_BT470BG;
    codec.chroma_location = AVCHROMA_LOC_CENTER;
  }
  if (format.kind == kRaw) {
    codec.format = PixelFormat(format.pixel_format);
    codec.color_range = AVCOL_RANGE_MPEG;
    codec.sample_aspect_ratio = stream->sample_aspect_ratio = {1, 1};
  }
  if (IsPlanar(container)) {
    stream->time_base = av_inv_q(stream->avg_frame_rate);  // it has a rate and no times
    _picture = av_frame_alloc();
    if (_picture == nullptr) return false;
    _picture->format = codec.format;
    _picture->width = format.width;
    _picture->height = format.height;
  }
  // A header with start codes tells the muxer that the frames have them too; it turns both into
  // length fields where the container wants that.
  const std::size_t header_bytes = format.header.size();
  if (header_bytes == 0) return true;
  void* extradata = av_mallocz(header_bytes + AV_INPUT_BUFFER_PADDING_SIZE);
  if (extradata == nullptr) return false;
  std::memcpy(extradata, format.header.data(), header_bytes);
  codec.extradata = static_cast<std::uint8_t*>(extradata);
  codec.extradata_size = static_cast<int>(header_bytes);
  return true;
}

// Small writes gather in a buffer: an error of an earlier one shows up at the file.
bool MediaWriter::Check(int result, std::string& error) const {
  if (result >= 0 && _format->pb != nullptr) result = std::min(0, _format->pb->error);
  if (result >= 0) return true;
  error = Reason(result);
  return false;
}

bool MediaWriter::Write(const frame_t& frame, std::int64_t time_ns, std::int64_t duration_ns,
                        std::string& error) {
  if (!_leading.empty() && !HasParameterSets(frame)) {
    avio_write(_format->pb, _leading.data(), static_cast<int>(_leading.size()));
  }
  _leading.clear();
  const AVRational unit = _format->streams[0]->time_base;
  // Two frames never share a time, however coarse the container's clock is.
  const std::int64_t time = std::max(_last_time + 1, av_rescale_q(time_ns, kNanoseconds, unit));
  _last_time = time;
  // The muxer only reads: it copies what it has to change.
  _packet->data = const_cast<std::uint8_t*>(frame.data);
  _packet->size = static_cast<int>(frame.size);
  if (_picture != nullptr && !WrapPicture(frame)) return Check(AVERROR_INVALIDDATA, error);
  _packet->pts = _packet->dts = time;
  _packet->duration = av_rescale_q(duration_ns, kNanoseconds, unit);
  _packet->flags = frame.isKey ? AV_PKT_FLAG_KEY : 0;
  const int written = av_write_frame(_format, _packet);
  av_packet_unref(_packet);
  return Check(written, error);
}

// False when the frame is too short for its picture.
bool MediaWriter::WrapPicture(const frame_t& frame) {
  const auto format = static_cast<AVPixelFormat>(_picture->format);
  const int size_bytes = av_image_fill_arrays(_picture->data, _picture->linesize, frame.data,
                                              format, _picture->width, _picture->height, 1);
  if (size_bytes < 0 || static_cast<std::uint32_t>(size_bytes) > frame.size) return false;
  _packet->data = reinterpret_cast<std::uint8_t*>(_picture);
  _packet->size = sizeof *_picture;
  return true;
}

bool MediaWriter::Finish(std::string& error) {
  _is_begun = false;
  const int ended = av_write_trailer(_format);
  if (_format->pb != nullptr) avio_flush(_format->pb);
  const bool is_whole = Check(ended, error);
  const int closed = avio_closep(&_format->pb);
  return is_whole && Check(closed, error);
}

MediaWriter::~MediaWriter() {
  std::string error;
  if (_is_begun) static_cast<void>(Finish(error));  // nobody is left to be told
  av_packet_free(&_packet);
  av_frame_free(&_picture);
  if (_format != nullptr) avio_closep(&_format->pb);
  avformat_free_context(_format);
}

}  // namespace tessel::tool
