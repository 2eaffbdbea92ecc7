#include "MediaInput.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include <sys/stat.h>
#include <time.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
}

#include "Clock.h"
#include "Scaler.h"

namespace tessel::rtos {
namespace {

constexpr AVRational kNanoseconds = {1, 1'000'000'000};
// Containers round time stamps to a millisecond at the coarsest; a picture that is due within this
// is due now.
constexpr std::int64_t kRoundingNs = 1'000'000;
constexpr std::int64_t kDefaultFrameNs = 40'000'000;  // 25 frames/s, where a file does not say
// The client's command gives up after a second, and other commands wait meanwhile: a sensor that
// takes longer to open is refused before that, with its own reason.
constexpr std::int64_t kOpenNs = 800'000'000;
constexpr std::int64_t kFirstPictureNs = 500'000'000;
constexpr std::int64_t kLookNs = 5'000'000;  // between two looks for a camera's first picture
// Broken packets are passed over, but a whole stretch of them means that nothing will come.
constexpr int kMostBrokenPackets = 10'000;

std::string Reason(int failure) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(failure, text, sizeof text);
  return text;
}

// The library asks this while it waits; `deadline_ns` points to an int64_t.
int IsTooLate(void* deadline_ns) {
  return NowNs() > *static_cast<const std::int64_t*>(deadline_ns) ? 1 : 0;
}

// A pipe or a socket could keep the command thread waiting for its other end.
bool IsRegularFile(const std::string& name) {
  struct stat status = {};
  return stat(name.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

void Sleep(std::int64_t ns) {
  const timespec time = {.tv_sec = ns / kSecondNs, .tv_nsec = ns % kSecondNs};
  nanosleep(&time, nullptr);
}

}  // namespace

void MediaInput::Free::operator()(AVFormatContext* format) const { avformat_close_input(&format); }
void MediaInput::Free::operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
void MediaInput::Free::operator()(AVFrame* frame) const { av_frame_free(&frame); }
void MediaInput::Free::operator()(AVPacket* packet) const { av_packet_free(&packet); }

MediaInput::MediaInput(std::string name)
    : _name(std::move(name)),
      _packet(av_packet_alloc()),
      _current(av_frame_alloc()),
      _next(av_frame_alloc()) {
  SilenceLibraries();
}

MediaInput::~MediaInput() = default;

std::unique_ptr<MediaInput> MediaInput::OpenFile(const std::string& path, bool loop,
                                                 std::string& error) {
  std::unique_ptr<MediaInput> input(new MediaInput(path));
  input->_loop = loop;
  if (input->OpenContainer() && input->OpenDecoder() && input->DecodeFirst()) return input;
  error = input->Error();
  return nullptr;
}

std::unique_ptr<MediaInput> MediaInput::OpenCamera(const std::string& device, int width, int height,
                                                   int frames_per_second, std::string& error) {
  std::unique_ptr<MediaInput> input(new MediaInput(device));
  input->_is_camera = true;
  if (input->OpenDevice(width, height, frames_per_second) && input->OpenDecoder() &&
      input->WaitForFirst()) {
    return input;
  }
  error = input->Error();
  return nullptr;
}

bool MediaInput::OpenContainer() {
  if (!IsRegularFile(_name)) return FailWith("neither a file nor a camera");
  AVFormatContext* format = avformat_alloc_context();
  if (format == nullptr) return FailWith("out of memory");
  // What is opened here keeps the callback for its life, so the deadline is taken back, not the
  // callback.
  _deadline_ns = NowNs() + kOpenNs;
  format->interrupt_callback = {&IsTooLate, &_deadline_ns};
  // The prefix keeps a colon in a name from being read as the scheme of a URL.
  const int opened = avformat_open_input(&format, ("file:" + _name).c_str(), nullptr, nullptr);
  _format.reset(format);
  if (opened == AVERROR_EXIT) return FailWith("takes too long to open");
  if (opened < 0) {
    return FailWith(opened == AVERROR_INVALIDDATA ? "no video in it" : Reason(opened));
  }
  // Text would be drawn as on a terminal.
  const bool is_text = std::strcmp(format->iformat->name, "tty") == 0;
  if (is_text || avformat_find_stream_info(format, nullptr) < 0) return FailWith("no video in it");
  _deadline_ns = std::numeric_limits<std::int64_t>::max();
  return true;
}

bool MediaInput::OpenDevice(int width, int height, int frames_per_second) {
  avdevice_register_all();
  const AVInputFormat* v4l2 = av_find_input_format("video4linux2,v4l2");
  AVFormatContext* format = avformat_alloc_context();
  if (v4l2 == nullptr || format == nullptr) {
    avformat_free_context(format);
    return FailWith("no support for cameras in this build of the libraries");
  }
  format->flags |= AVFMT_FLAG_NONBLOCK;  // the chain waits by its schedule, not in the driver
  AVDictionary* options = nullptr;
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  av_dict_set(&options, "video_size", size.c_str(), 0);
  av_dict_set_int(&options, "framerate", frames_per_second, 0);
  const int opened = avformat_open_input(&format, _name.c_str(), v4l2, &options);
  av_dict_free(&options);
  _format.reset(format);
  return opened >= 0 || FailWith(Reason(opened));
}

bool MediaInput::OpenDecoder() {
  for (unsigned i = 0; i < _format->nb_streams && _stream < 0; ++i) {
    const AVStream& stream = *_format->streams[i];
    const bool is_cover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !is_cover) {
      _stream = static_cast<int>(i);
    }
  }
  if (_stream < 0) return FailWith("no video in it");
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

bool MediaInput::DecodeFirst() {
  if (DecodeNext() != Decoded::kPicture) return FailWith("no picture in its video");
  std::swap(_current, _next);
  const Decoded second = DecodeNext();
  _has_next = second == Decoded::kPicture;
  return second != Decoded::kFailed;
}

bool MediaInput::WaitForFirst() {
  for (std::int64_t waited_ns = 0; waited_ns < kFirstPictureNs; waited_ns += kLookNs) {
    const Step step = AdvanceCamera();
    if (step == Step::kNew) return true;
    if (step != Step::kSame) return false;
    Sleep(kLookNs);
  }
  return FailWith("no picture within 0.5 s");
}

MediaInput::Step MediaInput::AdvanceTo(std::int64_t time_ns) {
  return _is_camera ? AdvanceCamera() : AdvanceFile(time_ns);
}

MediaInput::Step MediaInput::AdvanceFile(std::int64_t time_ns) {
  Step step = Step::kSame;
  while (_has_next && _next_start_ns <= time_ns + kRoundingNs) {
    std::swap(_current, _next);
    step = Step::kNew;
    const Decoded decoded = DecodeNext();
    if (decoded == Decoded::kFailed) return Step::kFailed;
    _has_next = decoded == Decoded::kPicture;
  }
  const bool is_over = !_has_next && time_ns + kRoundingNs >= _decoded_end_ns;
  return is_over ? Step::kEnd : step;
}

MediaInput::Step MediaInput::AdvanceCamera() {
  // A camera that is faster than the schedule leaves several pictures; the newest one counts. It
  // cannot outrun this loop, but the bound is ours.
  constexpr int kMostPictures = 64;
  Step step = Step::kSame;
  for (int i = 0; i < kMostPictures; ++i) {
    const Decoded decoded = DecodeInto(*_next);
    if (decoded == Decoded::kFailed) return Step::kFailed;
    if (decoded != Decoded::kPicture) break;
    std::swap(_current, _next);
    step = Step::kNew;
  }
  return step;
}

// Decodes the picture after the last one into _next, from the start of the file when it loops.
MediaInput::Decoded MediaInput::DecodeNext() {
  Decoded decoded = DecodeInto(*_next);
  if (decoded == Decoded::kEnd && _loop) decoded = StartAnew();
  if (decoded != Decoded::kPicture) return decoded;
  _next_start_ns = StartOf(*_next);
  const std::int64_t said_ns = ToNs(_next->pkt_duration);
  _decoded_end_ns = _next_start_ns + (said_ns > 0 ? said_ns : _nominal_frame_ns);
  return Decoded::kPicture;
}

// When the picture is due, counted from the start of the first pass. Never before the last one's
// time: streams without time stamps, or with broken ones, go on at their nominal rate.
std::int64_t MediaInput::StartOf(const AVFrame& frame) {
  const std::int64_t pts = frame.best_effort_timestamp;
  if (pts == AV_NOPTS_VALUE) return _decoded_end_ns;
  const std::int64_t pts_ns = ToNs(pts);
  if (!std::exchange(_knows_first_pts, true)) _first_pts_ns = pts_ns;
  const std::int64_t start_ns = _pass_start_ns + (pts_ns - _first_pts_ns);
  return start_ns > _next_start_ns || _decoded_end_ns == 0 ? start_ns : _decoded_end_ns;
}

MediaInput::Decoded MediaInput::DecodeInto(AVFrame& frame) {
  for (int broken = 0; broken < kMostBrokenPackets;) {
    const int received = avcodec_receive_frame(_codec.get(), &frame);
    if (received >= 0) return Decoded::kPicture;
    if (received == AVERROR_EOF) return Decoded::kEnd;
    if (received != AVERROR(EAGAIN)) {
      ++broken;
      continue;
    }
    const Decoded fed = Feed();
    if (fed == Decoded::kNothingYet || fed == Decoded::kFailed) return fed;
    if (fed == Decoded::kEnd) ++broken;
  }
  FailWith("its video cannot be decoded");
  return Decoded::kFailed;
}

// Gives the decoder one packet, or tells it that no more come. kPicture: taken; kEnd: it refused
// the packet, which is passed over.
MediaInput::Decoded MediaInput::Feed() {
  int failure = 0;
  do {
    av_packet_unref(_packet.get());
    failure = av_read_frame(_format.get(), _packet.get());
  } while (failure >= 0 && _packet->stream_index != _stream);
  if (failure == AVERROR(EAGAIN)) return Decoded::kNothingYet;
  if (failure < 0 && _is_camera) {
    FailWith(Reason(failure));
    return Decoded::kFailed;
  }
  // A file that breaks off ends there.
  const AVPacket* packet = failure < 0 ? nullptr : _packet.get();
  const int sent = avcodec_send_packet(_codec.get(), packet);
  av_packet_unref(_packet.get());
  return sent < 0 ? Decoded::kEnd : Decoded::kPicture;
}

// Goes back to the start and decodes the first picture there. Files differ in what they can do, and
// some claim to have gone where they have not, so the picture counts. A file without one ends the
// attempts.
MediaInput::Decoded MediaInput::StartAnew() {
  _pass_start_ns = _decoded_end_ns;
  for (const auto rewind : {&MediaInput::SeekTime, &MediaInput::SeekPlace, &MediaInput::Reopen}) {
    if (!(this->*rewind)() || DecodeInto(*_next) != Decoded::kPicture) continue;
    const std::int64_t pts = _next->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE || ToNs(pts) <= _first_pts_ns) return Decoded::kPicture;
  }
  FailWith("cannot be played again from its start");
  return Decoded::kFailed;
}

bool MediaInput::SeekTime() {
  const std::int64_t known = _format->streams[_stream]->start_time;
  const std::int64_t start = known == AV_NOPTS_VALUE ? 0 : known;
  if (avformat_seek_file(_format.get(), _stream, INT64_MIN, start, start, 0) < 0) return false;
  avcodec_flush_buffers(_codec.get());
  return true;
}

// Elementary streams know no times, only places.
bool MediaInput::SeekPlace() {
  if (av_seek_frame(_format.get(), _stream, 0, AVSEEK_FLAG_BYTE) < 0) return false;
  avcodec_flush_buffers(_codec.get());
  return true;
}

bool MediaInput::Reopen() {
  _codec.reset();
  _stream = -1;
  return OpenContainer() && OpenDecoder();
}

std::int64_t MediaInput::ToNs(std::int64_t time) const {
  return av_rescale_q(time, _format->streams[_stream]->time_base, kNanoseconds);
}

bool MediaInput::Render(Scaler& scaler, const Picture& into) {
  return scaler.Scale(*_current, into) || FailWith("cannot convert its pictures");
}

bool MediaInput::FailWith(const std::string& reason) {
  _error = "sensor \"" + _name + "\": " + reason;
  return false;
}

}  // namespace tessel::rtos
