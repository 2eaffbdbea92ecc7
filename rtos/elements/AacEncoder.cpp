#include "AacEncoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include "Clock.h"
#include "KnownParams.h"

namespace tessel::rtos {
namespace {

constexpr int kFrame = 1024;                       // samples of each channel in a frame
constexpr std::size_t kMostFrameBytes = 6144 / 8;  // of each channel in a frame
constexpr int kHeaderBytes = 7;                    // of ADTS without a check sum
constexpr int kObjectType = 2;                     // AAC LC among the audio object types of MPEG-4
constexpr int kVersion = 4;                        // MPEG-4; the ID bit of ADTS is 0 then
constexpr char kBroken[] = "the encoder fails";

// With what stands for them in headers. Above 48000 a block of 20 ms would be longer than a frame;
// 7350 is below what the sound filter makes.
struct Rate {
  int samples_per_second;
  int index;
};
constexpr Rate kRates[] = {{48000, 3}, {44100, 4}, {32000, 5},  {24000, 6}, {22050, 7},
                           {16000, 8}, {12000, 9}, {11025, 10}, {8000, 11}};
constexpr std::string_view kProfiles[] = {"LC", "AAC-LC", "low"};

// The library's coder makes the steps of a pure tone so fine, where bits abound, that loud ones are
// clipped: a sine of full scale comes out 8 dB above its distortion. A soft noise in the frames
// with such peaks takes the bits. Of one channel, or of two that are alike, about 4 dB less than
// this law were found to be enough. Where a frame has that much of its own, as speech and music
// have, none is added.
constexpr float kLoudPeak = 0.4F;

// Root mean square of that noise, full scale being 1: -65.5 dB at 128 kbit/s and 48 kHz.
double SoftNoise(std::int64_t bit_rate_bps, int rate) {
  const double bits = static_cast<double>(bit_rate_bps) / rate;  // of all channels for one sample
  return std::pow(10.0, std::min(-78 + 4.7 * bits, -50.0) / 20);
}

// Root mean square of what the four samples in front of each do not foretell, by the linear
// prediction that does it best: the noise beside up to two pure tones.
double Unforetold(std::span<const float> samples) {
  constexpr std::size_t kOrder = 4;
  double matrix[kOrder][kOrder + 1] = {};  // correlations, and those with what is foretold
  for (std::size_t i = kOrder; i < samples.size(); ++i) {
    for (std::size_t row = 0; row < kOrder; ++row) {
      for (std::size_t column = 0; column <= kOrder; ++column) {
        const float other = column == kOrder ? samples[i] : samples[i - 1 - column];
        matrix[row][column] += double{samples[i - 1 - row]} * other;
      }
    }
  }
  const double ridge = 1e-9 * matrix[0][0];  // tones alone leave it without an inverse
  for (std::size_t row = 0; row < kOrder; ++row) matrix[row][row] += ridge;
  for (std::size_t pivot = 0; pivot < kOrder; ++pivot) {
    for (std::size_t row = 0; row < kOrder; ++row) {
      if (row == pivot) continue;
      const double factor = matrix[row][pivot] / matrix[pivot][pivot];
      for (std::size_t i = pivot; i <= kOrder; ++i) matrix[row][i] -= factor * matrix[pivot][i];
    }
  }
  double power = 0;
  for (std::size_t i = kOrder; i < samples.size(); ++i) {
    double rest = samples[i];
    for (std::size_t k = 0; k < kOrder; ++k) {
      rest -= matrix[k][kOrder] / matrix[k][k] * samples[i - 1 - k];
    }
    power += rest * rest;
  }
  return std::sqrt(power / static_cast<double>(samples.size() - kOrder));
}

// A source may correct its clock; what is missing is a block at least.
constexpr std::int64_t kGapNs = 10'000'000;

std::array<std::uint8_t, kHeaderBytes> AdtsHeader(int rate_index, int channels,
                                                  std::size_t payload_bytes) {
  const unsigned length = static_cast<unsigned>(payload_bytes) + kHeaderBytes;
  const unsigned profile = kObjectType - 1;
  const auto index = static_cast<unsigned>(rate_index);
  const auto layout = static_cast<unsigned>(channels);  // 1: mono, 2: stereo
  const unsigned bytes[kHeaderBytes] = {
      0xff,  // sync word, 12 bits
      0xf1,  // its end, MPEG-4, layer 0, no check sum
      profile << 6 | index << 2 | layout >> 2,
      (layout & 3) << 6 | length >> 11,  // neither copyrighted nor original
      length >> 3 & 0xff,
      (length & 7) << 5 | 0x1f,  // buffer fullness 0x7ff: variable rate
      0xfc,                      // its end, one raw data block
  };
  std::array<std::uint8_t, kHeaderBytes> header;
  std::transform(std::begin(bytes), std::end(bytes), header.begin(),
                 [](unsigned byte) { return static_cast<std::uint8_t>(byte); });
  return header;
}

bool CheckProfile(const char* name, std::string& error) {
  if (name == nullptr || std::count(std::begin(kProfiles), std::end(kProfiles), name) != 0) {
    return true;
  }
  error = std::string("profile=") + name + " is not supported: LC is";
  return false;
}

}  // namespace

bool AacEncoder::Open(const Context&, const AttrSet& params, Media& media, std::string& error) {
  SilenceLibraries();
  if (!ReadParams(params, media, error)) return false;
  _packet = MakePacket();
  if (_packet == nullptr || !MakeCodec()) {
    error = "the library refuses to encode AAC";
    return false;
  }
  // Uniform: the root mean square is the limit by the square root of 3.
  _noise_rms = SoftNoise(_codec->bit_rate, _rate);
  const auto limit = static_cast<float>(_noise_rms * std::sqrt(3.0));
  _noise = std::uniform_real_distribution<float>(-limit, limit);
  Describe(media);
  return true;
}

bool AacEncoder::ReadParams(const AttrSet& params, const Media& media, std::string& error) {
  _rate = media.sample_rate;
  _input_channels = media.channels;
  _channels = _input_channels;
  if (!CheckKnown(params, {"name", "profile", "br", "ch", "bw"}, error) ||
      !CheckProfile(params.Get("profile"), error) ||
      !ReadInt(params, "br", 8000, 576'000, _bit_rate_bps, error) ||
      !ReadInt(params, "ch", 1, 2, _channels, error) ||
      !ReadInt(params, "bw", 0, _rate / 2, _bandwidth_hz, error)) {
    return false;
  }
  const auto* rate = std::find_if(std::begin(kRates), std::end(kRates), [this](const Rate& row) {
    return row.samples_per_second == _rate;
  });
  if (rate == std::end(kRates)) {
    error = "rate=" + std::to_string(_rate) + " of the sound in front is none of";
    for (const Rate& row : kRates) error += " " + std::to_string(row.samples_per_second);
    return false;
  }
  if (_input_channels < 1 || _input_channels > 2) {
    error = "ch=" + std::to_string(_input_channels) + " of the sound in front outside 1..2";
    return false;
  }
  _rate_index = rate->index;
  return true;
}

bool AacEncoder::MakeCodec() {
  _times_ns.clear();
  _is_used = false;
  _is_draining = false;
  _random.seed();  // each run is the same
  const AVCodec* library = avcodec_find_encoder_by_name("aac");
  _codec.reset(avcodec_alloc_context3(library));
  _frame = MakeFrame();
  if (library == nullptr || _codec == nullptr || _frame == nullptr) return false;
  _codec->profile = FF_PROFILE_AAC_LOW;
  _codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
  _codec->sample_rate = _rate;
  _codec->time_base = {1, _rate};
  _codec->bit_rate = _bit_rate_bps;  // the library brings it down to what AAC allows
  _codec->cutoff = _bandwidth_hz;
  _codec->flags |= AV_CODEC_FLAG_BITEXACT;  // no name of the library in the stream
  av_channel_layout_default(&_codec->ch_layout, _channels);
  // Keeps closer to the sound than the library's first choice: by 35 dB with tones, by 3 dB with
  // speech, there for 5 to 9 % more bits. It takes about half the time.
  av_opt_set(_codec->priv_data, "aac_coder", "fast", 0);
  if (avcodec_open2(_codec.get(), library, nullptr) < 0 || _codec->frame_size != kFrame ||
      _codec->initial_padding != kFrame) {
    return false;
  }
  _frame->nb_samples = kFrame;
  _frame->format = AV_SAMPLE_FMT_FLTP;
  _frame->sample_rate = _rate;
  return av_channel_layout_copy(&_frame->ch_layout, &_codec->ch_layout) >= 0 &&
         av_frame_get_buffer(_frame.get(), 0) >= 0;
}

void AacEncoder::Describe(Media& media) const {
  media.channels = _channels;
  media.frames_per_second = (_rate + kFrame / 2) / kFrame;
  media.unit_bytes = kHeaderBytes + kMostFrameBytes * static_cast<std::size_t>(_channels);
  AttrSet& description = media.description = AttrSet();
  description.Add("codec", "aac");
  description.Add("rate", _rate);
  description.Add("ch", _channels);
  description.Add("profile", kObjectType);
  description.Add("version", kVersion);
  description.Add("rateidx", _rate_index);
  description.Add("adtslen", kHeaderBytes);
  description.Add("bitrate", static_cast<int>(_codec->bit_rate));
  description.Add("config",
                  Hex({_codec->extradata, static_cast<std::size_t>(_codec->extradata_size)}));
}

void AacEncoder::Start() {
  if ((_is_used || _codec == nullptr) && !MakeCodec()) _codec.reset();
  _filled = 0;
}

std::int64_t AacEncoder::DurationNs(int samples) const { return samples * kSecondNs / _rate; }

Verdict AacEncoder::Process(Unit& unit) {
  if (_codec == nullptr) return FailWith(kBroken);
  if (!Bridge(unit.time_ns) || !Add(unit.samples, unit.time_ns)) return FailWith(kBroken);
  return Receive(unit);
}

Verdict AacEncoder::Drain(Unit& unit) {
  if (_codec == nullptr) return FailWith(kBroken);
  if (!_is_draining) {
    _is_draining = true;
    _is_used = true;
    const bool is_sent = _filled == 0 || AddSilence(kFrame - _filled);
    if (!is_sent || avcodec_send_frame(_codec.get(), nullptr) < 0) return FailWith(kBroken);
  }
  return Receive(unit);
}

bool AacEncoder::Bridge(std::int64_t time_ns) {
  const std::int64_t gap_ns = time_ns - _next_ns;
  if (_filled == 0 || std::abs(gap_ns) < kGapNs) return true;
  const int rest = kFrame - _filled;
  // Also where time goes back: what comes now is no continuation.
  const bool is_whole = gap_ns < 0 || gap_ns >= DurationNs(rest);
  return AddSilence(is_whole ? rest
                             : static_cast<int>((gap_ns * _rate + kSecondNs / 2) / kSecondNs));
}

bool AacEncoder::Add(std::span<const std::int16_t> samples, std::int64_t time_ns) {
  const auto at = [&](int sample, int channel) {
    const int index = sample * _input_channels + channel;
    return static_cast<float>(samples[static_cast<std::size_t>(index)]) / 32768.0F;
  };
  const int count = static_cast<int>(samples.size()) / _input_channels;
  _next_ns = time_ns + DurationNs(count);
  for (int i = 0; i < count; ++i) {
    // The clock is the source's: were the samples counted instead, the two would drift apart.
    if (_filled == 0) _frame_ns = time_ns + DurationNs(i);
    for (int channel = 0; channel < _channels; ++channel) {
      const float mixed = _channels < _input_channels
                              ? (at(i, 0) + at(i, 1)) / 2
                              : at(i, std::min(channel, _input_channels - 1));
      reinterpret_cast<float*>(_frame->data[channel])[_filled] = mixed;
    }
    ++_filled;
    if (_filled == kFrame && !SendFull()) return false;
  }
  return true;
}

bool AacEncoder::AddSilence(int samples) {
  for (int channel = 0; channel < _channels; ++channel) {
    float* plane = reinterpret_cast<float*>(_frame->data[channel]);
    std::fill_n(plane + _filled, samples, 0.0F);
  }
  _filled += samples;
  return _filled < kFrame || SendFull();
}

void AacEncoder::SoftenLoud() {
  for (int channel = 0; channel < _channels; ++channel) {
    const std::span plane(reinterpret_cast<float*>(_frame->data[channel]), kFrame);
    const bool is_loud = std::any_of(plane.begin(), plane.end(),
                                     [](float sample) { return std::abs(sample) > kLoudPeak; });
    if (!is_loud || Unforetold(plane) > _noise_rms) continue;
    for (float& sample : plane) sample += _noise(_random);
  }
}

bool AacEncoder::SendFull() {
  SoftenLoud();
  if (!_is_used) _times_ns.push_back(_frame_ns - DurationNs(kFrame));
  _is_used = true;
  _times_ns.push_back(_frame_ns);
  _filled = 0;
  return avcodec_send_frame(_codec.get(), _frame.get()) >= 0 &&
         av_frame_make_writable(_frame.get()) >= 0;
}

Verdict AacEncoder::Receive(Unit& unit) {
  const int result = avcodec_receive_packet(_codec.get(), _packet.get());
  if (result == AVERROR(EAGAIN)) return Verdict::kMore;
  if (result == AVERROR_EOF) return Verdict::kEnd;
  if (result < 0 || _times_ns.empty()) return FailWith(kBroken);
  unit.time_ns = _times_ns.front();
  _times_ns.pop_front();
  unit.is_key = true;  // decoding may begin with any of them
  const Verdict verdict = Write(unit);
  av_packet_unref(_packet.get());
  return verdict;
}

Verdict AacEncoder::Write(Unit& unit) {
  if (unit.room.empty()) return Verdict::kPass;
  const auto payload_bytes = static_cast<std::size_t>(_packet->size);
  if (kHeaderBytes + payload_bytes > unit.room.size()) {
    return FailWith("a frame does not fit into " + std::to_string(unit.room.size()) + " bytes");
  }
  const auto header = AdtsHeader(_rate_index, _channels, payload_bytes);
  std::memcpy(unit.room.data(), header.data(), kHeaderBytes);
  std::memcpy(unit.room.data() + kHeaderBytes, _packet->data, payload_bytes);
  unit.size_bytes = kHeaderBytes + payload_bytes;
  return Verdict::kPass;
}

}  // namespace tessel::rtos
