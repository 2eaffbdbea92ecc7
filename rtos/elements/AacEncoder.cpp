#include "AacEncoder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include "AdtsHeader.h"
#include "Clock.h"
#include "ElementParams.h"

namespace tessel::rtos {
namespace {

constexpr int kFrame = 1024;                       // samples of each channel in a frame
constexpr std::size_t kMostFrameBytes = 6144 / 8;  // of each channel in a frame
constexpr int kVersion = 4;                        // MPEG-4; the ID bit of ADTS is 0 then
constexpr char kBroken[] = "the encoder fails";

constexpr std::string_view kProfiles[] = {"LC", "AAC-LC", "low"};

// Smaller gaps are corrections of the source's clock: a missing capture is a block of 20 ms.
constexpr std::int64_t kGapNs = 10'000'000;

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
  const auto rates = AacRates();
  const auto rate = std::find_if(rates.begin(), rates.end(), [this](const AacRate& row) {
    return row.samples_per_second == _rate;
  });
  if (rate == rates.end()) {
    error = "rate=" + std::to_string(_rate) + " of the sound in front is none of";
    for (const AacRate& row : rates) error += " " + std::to_string(row.samples_per_second);
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
  // More accurate than the library's default: by 35 dB with tones, by 3 dB with speech, where it
  // takes 5 to 9 % more bits. It takes about half the time.
  av_opt_set(_codec->priv_data, "aac_coder", "fast", 0);
  if (avcodec_open2(_codec.get(), library, nullptr) < 0 || _codec->frame_size != kFrame ||
      _codec->initial_padding != kFrame) {
    return false;
  }
  _softener = ToneSoftener(_codec->bit_rate, _rate);
  _frame->nb_samples = kFrame;
  _frame->format = AV_SAMPLE_FMT_FLTP;
  _frame->sample_rate = _rate;
  return av_channel_layout_copy(&_frame->ch_layout, &_codec->ch_layout) >= 0 &&
         av_frame_get_buffer(_frame.get(), 0) >= 0;
}

void AacEncoder::Describe(Media& media) const {
  media.channels = _channels;
  media.frames_per_second = (_rate + kFrame / 2) / kFrame;
  media.unit_bytes = kAdtsHeaderBytes + kMostFrameBytes * static_cast<std::size_t>(_channels);
  AttrSet& description = media.description = AttrSet();
  description.Add(media_key::kCodec, "aac");
  description.Add(media_key::kSampleRate, _rate);
  description.Add(media_key::kChannels, _channels);
  description.Add(media_key::kProfile, kAacLowComplexity);
  description.Add(media_key::kVersion, kVersion);
  description.Add(media_key::kRateIndex, _rate_index);
  description.Add(media_key::kAdtsBytes, kAdtsHeaderBytes);
  description.Add(media_key::kBitRate, static_cast<int>(_codec->bit_rate));
  description.Add(media_key::kConfig,
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
  // Time that goes back also ends the frame: the new samples do not continue the old ones.
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
    // By the source's time, not by counting samples: the two clocks would drift apart.
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

bool AacEncoder::SendFull() {
  for (int channel = 0; channel < _channels; ++channel) {
    _softener.Apply({reinterpret_cast<float*>(_frame->data[channel]), kFrame});
  }
  if (!_is_used) _times_ns.push_back(_frame_ns - DurationNs(kFrame));
  _is_used = true;
  _times_ns.push_back(_frame_ns);
  _filled = 0;
  return avcodec_send_frame(_codec.get(), _frame.get()) >= 0 &&
         av_frame_make_writable(_frame.get()) >= 0;
}

Verdict AacEncoder::Receive(Unit& unit) {
  const int result = avcodec_receive_packet(_codec.get(), _packet.get());
  if (result == AVERROR(EAGAIN)) return Verdict::kNeedMore;
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
  if (kAdtsHeaderBytes + payload_bytes > unit.room.size()) {
    return FailWith("a frame does not fit into " + std::to_string(unit.room.size()) + " bytes");
  }
  const auto header = AdtsHeader(_rate_index, _channels, payload_bytes);
  std::memcpy(unit.room.data(), header.data(), kAdtsHeaderBytes);
  std::memcpy(unit.room.data() + kAdtsHeaderBytes, _packet->data, payload_bytes);
  unit.size_bytes = kAdtsHeaderBytes + payload_bytes;
  return Verdict::kPass;
}

}  // namespace tessel::rtos
