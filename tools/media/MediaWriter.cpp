#include "MediaWriter.h"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
}

#include "Containers.h"

namespace tessel::tool {
namespace {

constexpr AVRational kNanoseconds = {1, 1'000'000'000};
// Fine enough for any frame rate, and a gap of hours still fits into the 32 bits of a duration.
constexpr AVRational kTicks = {1, 90'000};

std::string Reason(int failure) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(failure, text, sizeof text);
  return text;
}

// Whether a frame begins with the parameter sets that a decoder needs first.
bool HasParameterSets(std::span<const std::uint8_t> bytes) {
  constexpr int kSliceEnd = 5;
  constexpr int kSps = 7;
  for (std::size_t i = 0; i + 3 < bytes.size(); ++i) {
    if (bytes[i] != 0 || bytes[i + 1] != 0 || bytes[i + 2] != 1) continue;
    const int type = bytes[i + 3] & 0x1f;
    if (type == kSps) return true;
    if (type >= 1 && type <= kSliceEnd) return false;
  }
  return false;
}

// What the frames are to the muxer.
AVCodecID CodecOf(const Container& container, MediaKind kind) {
  if (kind == MediaKind::kAac) return AV_CODEC_ID_AAC;
  if (kind == MediaKind::kPcm) return AV_CODEC_ID_PCM_S16LE;
  if (kind == MediaKind::kJpeg) return AV_CODEC_ID_MJPEG;
  if (kind == MediaKind::kH264) return AV_CODEC_ID_H264;
  return IsPlanar(container) ? AV_CODEC_ID_WRAPPED_AVFRAME : AV_CODEC_ID_RAWVIDEO;
}

void DescribeSound(const MediaFormat& format, AVStream& stream) {
  stream.time_base = {1, format.rate};
  AVCodecParameters& codec = *stream.codecpar;
  codec.codec_type = AVMEDIA_TYPE_AUDIO;
  codec.sample_rate = format.rate;
  av_channel_layout_default(&codec.ch_layout, format.channels);
  codec.bit_rate = format.bit_rate_bps;
  if (format.kind == MediaKind::kAac) {
    codec.format = AV_SAMPLE_FMT_FLTP;
    codec.frame_size = kAacFrame;
    codec.initial_padding = format.priming_samples;
    return;
  }
  codec.format = AV_SAMPLE_FMT_S16;
  codec.bits_per_coded_sample = kPcmBytes * 8;
  codec.block_align = kPcmBytes * format.channels;
  codec.bit_rate = std::int64_t{format.rate} * codec.block_align * 8;
}

bool SetHeader(AVCodecParameters& codec, const std::vector<std::uint8_t>& header) {
  if (header.empty()) return true;
  void* extradata = av_mallocz(header.size() + AV_INPUT_BUFFER_PADDING_SIZE);
  if (extradata == nullptr) return false;
  std::memcpy(extradata, header.data(), header.size());
  codec.extradata = static_cast<std::uint8_t*>(extradata);
  codec.extradata_size = static_cast<int>(header.size());
  return true;
}

}  // namespace

std::unique_ptr<MediaWriter> MediaWriter::Open(const Container& container, const std::string& path,
                                               std::span<const MediaFormat> formats,
                                               std::string& error) {
  std::unique_ptr<MediaWriter> writer(new MediaWriter);
  return writer->Begin(container, path, formats, error) ? std::move(writer) : nullptr;
}

bool MediaWriter::Begin(const Container& container, const std::string& path,
                        std::span<const MediaFormat> formats, std::string& error) {
  av_log_set_level(AV_LOG_QUIET);  // callers get the reasons
  // The prefix keeps a colon in a name from being read as the scheme of a URL.
  const std::string url = path == kStandardOutput ? "pipe:1" : "file:" + path;
  const int made = avformat_alloc_output_context2(&_format, nullptr, container.muxer, url.c_str());
  if (!Check(made, error)) return false;
  _packet = av_packet_alloc();
  if (_packet == nullptr) return Check(AVERROR(ENOMEM), error);
  for (const MediaFormat& format : formats) {
    if (!AddStream(container, format)) return Check(AVERROR(ENOMEM), error);
  }
  const bool opens_files = (_format->oformat->flags & AVFMT_NOFILE) != 0;
  if (!opens_files && !Check(avio_open(&_format->pb, url.c_str(), AVIO_FLAG_WRITE), error)) {
    return false;
  }
  // A program that reads the file meanwhile gets each frame at once, and a killed capture keeps
  // them.
  _format->flags |= AVFMT_FLAG_FLUSH_PACKETS;
  AVDictionary* options = nullptr;
  // A name without a pattern stands for one picture.
  if (IsPictures(container) && !IsPattern(path)) av_dict_set(&options, "update", "1", 0);
  const int written = avformat_write_header(_format, &options);
  av_dict_free(&options);
  if (!Check(written, error)) return false;
  _is_begun = true;
  return true;
}

bool MediaWriter::AddStream(const Container& container, const MediaFormat& format) {
  AVStream* stream = avformat_new_stream(_format, nullptr);
  if (stream == nullptr) return false;
  StreamState& state = _states.emplace_back();
  stream->codecpar->codec_id = CodecOf(container, format.kind);
  if (IsSound(format.kind)) {
    DescribeSound(format, *stream);
    // Bare frames keep their own headers; the muxer adds none.
    if (container.is_bare) return true;
    state.skipped_bytes = static_cast<std::size_t>(format.adts_bytes);
  } else {
    if (!DescribeVideo(container, format, *stream)) return false;
    if (container.is_bare) state.leading = format.header;
  }
  // Start codes in a header tell the muxer that the frames have them too; it turns both into
  // length fields where the container wants that.
  return SetHeader(*stream->codecpar, format.header);
}

bool MediaWriter::DescribeVideo(const Container& container, const MediaFormat& format,
                                AVStream& stream) {
  stream.time_base = kTicks;
  stream.avg_frame_rate = {format.frames_per_second, 1};
  AVCodecParameters& codec = *stream.codecpar;
  codec.codec_type = AVMEDIA_TYPE_VIDEO;
  codec.width = format.width;
  codec.height = format.height;
  if (format.kind == MediaKind::kJpeg) {
    // As JFIF defines for every picture.
    codec.format = AV_PIX_FMT_YUVJ420P;
    codec.color_range = AVCOL_RANGE_JPEG;
    codec.color_space = AVCOL_SPC_BT470BG;
    codec.chroma_location = AVCHROMA_LOC_CENTER;
  }
  if (format.kind == MediaKind::kRaw) {
    codec.format = PixelFormat(format.pixel_format);
    codec.color_range = AVCOL_RANGE_MPEG;
    codec.sample_aspect_ratio = stream.sample_aspect_ratio = {1, 1};
  }
  if (!IsPlanar(container)) return true;
  stream.time_base = av_inv_q(stream.avg_frame_rate);  // it stores a rate and no times
  _picture = av_frame_alloc();
  if (_picture == nullptr) return false;
  _picture->format = codec.format;
  _picture->width = format.width;
  _picture->height = format.height;
  return true;
}

// Small writes are buffered, so the error of an earlier one is found at the file.
bool MediaWriter::Check(int result, std::string& error) const {
  if (result >= 0 && _format->pb != nullptr) result = std::min(0, _format->pb->error);
  if (result >= 0) return true;
  error = Reason(result);
  return false;
}

bool MediaWriter::Write(std::size_t stream, const TimedFrame& frame, std::string& error) {
  StreamState& state = _states[stream];
  if (!state.leading.empty() && !HasParameterSets(frame.bytes)) {
    avio_write(_format->pb, state.leading.data(), static_cast<int>(state.leading.size()));
  }
  state.leading.clear();
  const AVRational tick = _format->streams[stream]->time_base;
  // Two frames never share a time, even where the container's clock is coarse.
  std::int64_t time = av_rescale_q(frame.time_ns, kNanoseconds, tick);
  if (state.last_time != INT64_MIN) time = std::max(state.last_time + 1, time);
  state.last_time = time;
  const auto bytes = frame.bytes.subspan(std::min(state.skipped_bytes, frame.bytes.size()));
  // The muxer only reads the bytes: it copies what it changes or keeps.
  _packet->data = const_cast<std::uint8_t*>(bytes.data());
  _packet->size = static_cast<int>(bytes.size());
  if (_picture != nullptr && !WrapPicture(bytes)) return Check(AVERROR_INVALIDDATA, error);
  _packet->stream_index = static_cast<int>(stream);
  _packet->pts = _packet->dts = time;
  _packet->duration = av_rescale_q(frame.duration_ns, kNanoseconds, tick);
  _packet->flags = frame.is_key ? AV_PKT_FLAG_KEY : 0;
  const bool is_alone = _states.size() == 1;
  const int written =
      is_alone ? av_write_frame(_format, _packet) : av_interleaved_write_frame(_format, _packet);
  av_packet_unref(_packet);
  if (!Check(written, error)) return false;
  // Matroska gathers a cluster of frames in memory; this writes it out.
  const bool gathers = (_format->oformat->flags & AVFMT_ALLOW_FLUSH) != 0;
  return !gathers || Check(av_write_frame(_format, nullptr), error);
}

// False when the bytes are too few for a picture.
bool MediaWriter::WrapPicture(std::span<const std::uint8_t> bytes) {
  const auto format = static_cast<AVPixelFormat>(_picture->format);
  const int size_bytes = av_image_fill_arrays(_picture->data, _picture->linesize, bytes.data(),
                                              format, _picture->width, _picture->height, 1);
  if (size_bytes < 0 || static_cast<std::size_t>(size_bytes) > bytes.size()) return false;
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
  if (_is_begun) static_cast<void>(Finish(error));  // no caller takes the error any more
  av_packet_free(&_packet);
  av_frame_free(&_picture);
  if (_format != nullptr) avio_closep(&_format->pb);
  avformat_free_context(_format);
}

}  // namespace tessel::tool
