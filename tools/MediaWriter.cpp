#include "MediaWriter.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "Console.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace tessel::tool {

struct Container {
  const char* extension;
  const char* muxer;
  bool keeps_header;  // apart from the frames; else the header stands in front of the first one
};

namespace {

constexpr Container kContainers[] = {
    {".mp4", "mp4", true},
    {".mkv", "matroska", true},
    {".h264", "h264", false},
};
constexpr const Container& kRaw = kContainers[2];

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

}  // namespace

const Container* FindContainer(const std::string& path, std::string& error) {
  if (path == kStandardOutput) return &kRaw;
  const std::string extension = std::filesystem::path(path).extension().string();
  std::string known;
  for (const Container& container : kContainers) {
    if (extension == container.extension) return &container;
    known += std::string(known.empty() ? "" : ", ") + container.extension;
  }
  error = Quoted(path) + " ends in none of " + known + ", which choose the container";
  return nullptr;
}

std::unique_ptr<MediaWriter> MediaWriter::Open(const Container& container, const std::string& path,
                                               const VideoFormat& format, std::string& error) {
  std::unique_ptr<MediaWriter> writer(new MediaWriter);
  return writer->Begin(container, path, format, error) ? std::move(writer) : nullptr;
}

bool MediaWriter::Begin(const Container& container, const std::string& path,
                        const VideoFormat& format, std::string& error) {
  av_log_set_level(AV_LOG_QUIET);  // reasons are handed back
  const int made = avformat_alloc_output_context2(&_format, nullptr, container.muxer, nullptr);
  if (!Check(made, error)) return false;
  _packet = av_packet_alloc();
  if (_packet == nullptr || !AddStream(format)) return Check(AVERROR(ENOMEM), error);
  if (!container.keeps_header) _leading = format.header;

  // The prefix keeps a colon in a name from being read as the scheme of a URL.
  const std::string url = path == kStandardOutput ? "pipe:1" : "file:" + path;
  if (!Check(avio_open(&_format->pb, url.c_str(), AVIO_FLAG_WRITE), error)) return false;
  // Whoever reads from a pipe wants each frame when it comes.
  if (path == kStandardOutput) _format->flags |= AVFMT_FLAG_FLUSH_PACKETS;
  if (!Check(avformat_write_header(_format, nullptr), error)) return false;
  _is_begun = true;
  return true;
}

bool MediaWriter::AddStream(const VideoFormat& format) {
  AVStream* stream = avformat_new_stream(_format, nullptr);
  if (stream == nullptr) return false;
  stream->time_base = kTicks;
  stream->avg_frame_rate = {format.frames_per_second, 1};
  AVCodecParameters& codec = *stream->codecpar;
  codec.codec_type = AVMEDIA_TYPE_VIDEO;
  codec.codec_id = AV_CODEC_ID_H264;
  codec.width = format.width;
  codec.height = format.height;
  // A header with start codes tells the muxer that the frames have them too; it turns both into
  // length fields where the container wants that.
  const std::size_t header_bytes = format.header.size();
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
  _packet->pts = _packet->dts = time;
  _packet->duration = av_rescale_q(duration_ns, kNanoseconds, unit);
  _packet->flags = frame.isKey ? AV_PKT_FLAG_KEY : 0;
  const int written = av_write_frame(_format, _packet);
  av_packet_unref(_packet);
  return Check(written, error);
}

bool MediaWriter::Finish(std::string& error) {
  _is_begun = false;
  const int ended = av_write_trailer(_format);
  avio_flush(_format->pb);
  const bool is_whole = Check(ended, error);
  const int closed = avio_closep(&_format->pb);
  return is_whole && Check(closed, error);
}

MediaWriter::~MediaWriter() {
  std::string error;
  if (_is_begun) static_cast<void>(Finish(error));  // nobody is left to be told
  av_packet_free(&_packet);
  if (_format != nullptr) avio_closep(&_format->pb);
  avformat_free_context(_format);
}

}  // namespace tessel::tool
