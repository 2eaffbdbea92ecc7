#include "MediaReader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include <sys/stat.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
}

#include "Clock.h"

namespace tessel::rtos {
namespace {

constexpr AVRational kNanoseconds = {1, 1'000'000'000};
constexpr char kScheme[] = "file:";
constexpr std::int64_t kDefaultFrameNs = 40'000'000;  // 25 frames/s, where a file does not say
// The client's command gives up after a second by default, and other commands wait meanwhile: an
// input that takes longer to open is refused before that, with its own reason.
constexpr std::int64_t kOpenNs = 800'000'000;
// A file is there or it is not; a playlist could wait for its next part.
constexpr std::int64_t kReadNs = 500'000'000;
// Files that say otherwise are broken: a loop of nothing would never come to an end.
constexpr std::int64_t kLeastFrameNs = 1'000'000;
constexpr std::int64_t kMostFrameNs = 3'600'000'000'000;
constexpr std::int64_t kMostLeadNs = kMostFrameNs;
constexpr std::int64_t kMostStampNs = 4'000'000'000'000'000'000;  // two may be subtracted
// Broken packets are passed over, but a whole stretch of them means that nothing will come.
constexpr int kMostBrokenPackets = 10'000;

// What differs between the kinds, in the order of MediaReader::Kind.
struct KindRow {
  AVMediaType type;
  const char* input;
  const char* content;
  const char* device;
};
constexpr KindRow kKinds[] = {
    {AVMEDIA_TYPE_VIDEO, "sensor", "video", "camera"},
    {AVMEDIA_TYPE_AUDIO, "microphone", "sound", "sound card"},
};
const KindRow& RowOf(MediaReader::Kind kind) { return kKinds[static_cast<int>(kind)]; }

std::string Reason(int failure) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(failure, text, sizeof text);
  return text;
}

// The library asks this while it waits; `deadline_ns` points to an int64_t.
int IsTooLate(void* deadline_ns) {
  return NowNs() > *static_cast<const std::int64_t*>(deadline_ns) ? 1 : 0;
}

// A pipe or a socket could keep the connection thread waiting for its other end.
bool IsRegularFile(const std::string& name) {
  struct stat status = {};
  return stat(name.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

bool IsCover(const AVStream& stream) {
  return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

}  // namespace

void MediaReader::Free::operator()(AVFormatContext* format) const { avformat_close_input(&format); }

MediaReader::MediaReader(Kind kind, std::string name)
    : _kind(kind), _name(std::move(name)), _packet(MakePacket()) {
  SilenceLibraries();
}

MediaReader::~MediaReader() = default;

bool MediaReader::OpenFile(const std::string& path) {
  _path = path;
  return OpenContainer() && FindStream() && OpenDecoder();
}

bool MediaReader::OpenContainer() {
  const KindRow& kind = RowOf(_kind);
  const std::string nothing = std::string("no ") + kind.content + " in it";
  if (!IsRegularFile(_path)) return FailWith(std::string("neither a file nor a ") + kind.device);
  AVFormatContext* format = avformat_alloc_context();
  if (format == nullptr) return FailWith("out of memory");
  _refused.clear();
  // What is opened here keeps the callback for its life, so the deadline is taken back, not the
  // callback.
  _deadline_ns = NowNs() + kOpenNs;
  format->interrupt_callback = {&IsTooLate, &_deadline_ns};
  format->opaque = this;
  format->io_open = &MediaReader::OpenPart;
  // Lists of the concat kind open their files past that function: no protocol is left to them.
  format->protocol_whitelist = av_strdup("none");
  // The prefix keeps a colon in a name from being read as the scheme of a URL.
  const int opened = avformat_open_input(&format, (kScheme + _path).c_str(), nullptr, nullptr);
  _format.reset(format);
  if (!_refused.empty()) return FailWith("it names " + _refused + ", which is no regular file");
  if (opened == AVERROR_EXIT) return FailWith("takes too long to open");
  if (opened == AVERROR(EINVAL)) return FailWith("a list of files of a kind that is not read");
  if (opened < 0) return FailWith(opened == AVERROR_INVALIDDATA ? nothing : Reason(opened));
  // Text would be drawn as on a terminal.
  const bool is_text = std::strcmp(format->iformat->name, "tty") == 0;
  if (is_text || avformat_find_stream_info(format, nullptr) < 0) return FailWith(nothing);
  _deadline_ns = std::numeric_limits<std::int64_t>::max();
  return true;
}

// Opens the file itself and, where it is a playlist, what that names. Opening a pipe would block
// in the kernel, where no deadline is seen.
int MediaReader::OpenPart(AVFormatContext* format, AVIOContext** into, const char* url, int flags,
                          AVDictionary**) {
  const std::string path =
      std::strncmp(url, kScheme, sizeof kScheme - 1) == 0 ? url + sizeof kScheme - 1 : url;
  if (!IsRegularFile(path)) {
    static_cast<MediaReader*>(format->opaque)->_refused = path;
    return AVERROR(EACCES);
  }
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  const int opened =
      avio_open2(into, (kScheme + path).c_str(), flags, &format->interrupt_callback, &options);
  av_dict_free(&options);
  return opened;
}

bool MediaReader::OpenDevice(const char* driver, const std::string& device,
                             std::span<const Option> options) {
  _is_device = true;
  avdevice_register_all();
  const AVInputFormat* input = av_find_input_format(driver);
  AVFormatContext* format = avformat_alloc_context();
  if (input == nullptr || format == nullptr) {
    avformat_free_context(format);
    return FailWith(std::string("no support for ") + RowOf(_kind).device +
                    "s in this build of the libraries");
  }
  format->flags |= AVFMT_FLAG_NONBLOCK;  // the chain waits by its schedule, not in the driver
  AVDictionary* dictionary = nullptr;
  for (const Option& option : options) {
    av_dict_set(&dictionary, option.name, option.value.c_str(), 0);
  }
  const int opened = avformat_open_input(&format, device.c_str(), input, &dictionary);
  av_dict_free(&dictionary);
  _format.reset(format);
  if (opened < 0) return FailWith(Reason(opened));
  return FindStream() && OpenDecoder();
}

bool MediaReader::FindStream() {
  for (unsigned i = 0; i < _format->nb_streams && _stream < 0; ++i) {
    const AVStream& stream = *_format->streams[i];
    if (stream.codecpar->codec_type == RowOf(_kind).type && !IsCover(stream)) {
      _stream = static_cast<int>(i);
    }
  }
  return _stream >= 0 || FailWith(std::string("no ") + RowOf(_kind).content + " in it");
}

bool MediaReader::OpenDecoder() {
  AVStream* stream = _format->streams[_stream];
  const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
  if (codec == nullptr)
    return FailWith(std::string("no decoder for ") + avcodec_get_name(stream->codecpar->codec_id));
  _codec.reset(avcodec_alloc_context3(codec));
  if (_codec == nullptr) return FailWith("out of memory");
  int failure = avcodec_parameters_to_context(_codec.get(), stream->codecpar);
  if (failure >= 0) {
    _codec->pkt_timebase = stream->time_base;
    failure = avcodec_open2(_codec.get(), codec, nullptr);
  }
  if (failure < 0) return FailWith(Reason(failure));
  const AVRational rate = av_guess_frame_rate(_format.get(), stream, nullptr);
  _nominal_frame_ns = rate.num > 0 && rate.den > 0
                          ? av_rescale(kNanoseconds.den, rate.den, rate.num)
                          : kDefaultFrameNs;
  return true;
}

MediaReader::Step MediaReader::Decode(AVFrame& frame) {
  if (_codec == nullptr) return Step::kFailed;  // it could not be opened again, as Error() says
  for (int broken = 0; broken < kMostBrokenPackets;) {
    const int received = avcodec_receive_frame(_codec.get(), &frame);
    if (received >= 0) {
      if (!_first_stamp_ns) _first_stamp_ns = StampNs(frame);
      return Step::kFrame;
    }
    if (received == AVERROR_EOF) return Step::kEnd;
    if (received != AVERROR(EAGAIN)) {
      ++broken;
      continue;
    }
    const Fed fed = Feed();
    if (fed == Fed::kNothingYet) return Step::kNothingYet;
    if (fed == Fed::kFailed) return Step::kFailed;
    if (fed == Fed::kRefused) ++broken;
  }
  FailWith(std::string("its ") + RowOf(_kind).content + " cannot be decoded");
  return Step::kFailed;
}

// Gives the decoder one packet, or tells it that no more come. One that it refuses is passed over.
MediaReader::Fed MediaReader::Feed() {
  int failure = 0;
  _deadline_ns = NowNs() + kReadNs;
  do {
    av_packet_unref(_packet.get());
    failure = av_read_frame(_format.get(), _packet.get());
  } while (failure >= 0 && _packet->stream_index != _stream);
  if (failure == AVERROR(EAGAIN)) return Fed::kNothingYet;
  if (failure == AVERROR_EXIT) FailWith("takes too long to read");
  if (failure < 0 && failure != AVERROR_EXIT && _is_device) FailWith(Reason(failure));
  if (failure == AVERROR_EXIT || (failure < 0 && _is_device)) return Fed::kFailed;
  const AVPacket* packet = failure < 0 ? nullptr : _packet.get();
  const int sent = avcodec_send_packet(_codec.get(), packet);
  av_packet_unref(_packet.get());
  return sent < 0 ? Fed::kRefused : Fed::kTaken;
}

// Files differ in what they can do, and some claim to have gone where they have not, so the frame
// counts. A file without one ends the attempts.
MediaReader::Step MediaReader::StartAnew(AVFrame& frame) {
  for (const auto rewind :
       {&MediaReader::SeekTime, &MediaReader::SeekPlace, &MediaReader::Reopen}) {
    // After a seek some demuxers forget what of the first sound is padding, and decoders do not
    // begin as they did. Opening it once more takes milliseconds, and each pass is the same to the
    // sample.
    if (_kind == Kind::kSound && rewind != &MediaReader::Reopen) continue;
    if (!(this->*rewind)() || Decode(frame) != Step::kFrame) continue;
    if (StampNs(frame).value_or(FirstStampNs()) <= FirstStampNs()) return Step::kFrame;
  }
  FailWith("cannot be played again from its start");
  return Step::kFailed;
}

bool MediaReader::SeekTime() {
  const std::int64_t known = _format->streams[_stream]->start_time;
  const std::int64_t start = known == AV_NOPTS_VALUE ? 0 : known;
  if (avformat_seek_file(_format.get(), _stream, INT64_MIN, start, start, 0) < 0) return false;
  avcodec_flush_buffers(_codec.get());
  return true;
}

// Elementary streams know no times, only places.
bool MediaReader::SeekPlace() {
  if (av_seek_frame(_format.get(), _stream, 0, AVSEEK_FLAG_BYTE) < 0) return false;
  avcodec_flush_buffers(_codec.get());
  return true;
}

bool MediaReader::Reopen() {
  _codec.reset();
  _stream = -1;
  return OpenFile(_path);
}

std::int64_t MediaReader::ToNs(std::int64_t time) const {
  return av_rescale_q(time, _format->streams[_stream]->time_base, kNanoseconds);
}

std::optional<std::int64_t> MediaReader::StampNs(const AVFrame& frame) const {
  const std::int64_t stamp = frame.best_effort_timestamp;
  if (stamp == AV_NOPTS_VALUE) return std::nullopt;
  return std::clamp(ToNs(stamp), -kMostStampNs, kMostStampNs);
}

std::int64_t MediaReader::LeadNs() const {
  std::int64_t first_ns = FirstStampNs();
  for (unsigned i = 0; i < _format->nb_streams; ++i) {
    const AVStream& stream = *_format->streams[i];
    const AVMediaType type = stream.codecpar->codec_type;
    const bool is_film = type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO;
    if (!is_film || IsCover(stream) || stream.start_time == AV_NOPTS_VALUE) continue;
    const std::int64_t start_ns = av_rescale_q(stream.start_time, stream.time_base, kNanoseconds);
    // What lies before 0 is there for decoders only.
    first_ns = std::min(first_ns, std::clamp<std::int64_t>(start_ns, 0, kMostStampNs));
  }
  const std::int64_t lead_ns = FirstStampNs() - first_ns;
  return lead_ns > 0 && lead_ns < kMostLeadNs ? lead_ns : 0;
}

std::int64_t MediaReader::DurationNs(const AVFrame& frame) const {
  const std::int64_t said_ns = ToNs(frame.pkt_duration);
  return std::clamp(said_ns > 0 ? said_ns : _nominal_frame_ns, kLeastFrameNs, kMostFrameNs);
}

bool MediaReader::FailWith(const std::string& reason) {
  _error = std::string(RowOf(_kind).input) + " \"" + _name + "\": " + reason;
  return false;
}

}  // namespace tessel::rtos
