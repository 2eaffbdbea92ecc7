#include "SoundMeter.h"

#include <algorithm>
#include <cmath>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include "Console.h"

namespace tessel::tool {
namespace {

constexpr std::chrono::milliseconds kPeakHold(1500);
constexpr double kFullScale = 32768;  // of 16 bits

double Decibels(double amplitude) { return 20 * std::log10(amplitude); }

}  // namespace

void SoundMeter::Sum::Add(double sample) {
  squares += sample * sample;
  peak = std::max(peak, std::abs(sample));
  ++samples;
}

void SoundMeter::Sum::Add(const Sum& other) {
  squares += other.squares;
  peak = std::max(peak, other.peak);
  samples += other.samples;
}

SoundMeter::Level SoundMeter::Sum::ToLevel() const {
  const double mean = samples == 0 ? 0 : squares / static_cast<double>(samples);
  return {Decibels(peak), Decibels(std::sqrt(mean))};
}

std::unique_ptr<SoundMeter> SoundMeter::Create(const MediaFormat& format) {
  std::unique_ptr<SoundMeter> meter(new SoundMeter);
  meter->_channels.resize(static_cast<std::size_t>(std::max(1, format.channels)));
  meter->_left_out = format.priming_samples;
  if (format.kind == MediaKind::kAac && !meter->OpenDecoder()) return nullptr;
  return meter;
}

bool SoundMeter::OpenDecoder() {
  _packet = av_packet_alloc();
  _frame = av_frame_alloc();
  _codec = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_AAC));
  return _packet != nullptr && _frame != nullptr && _codec != nullptr &&
         avcodec_open2(_codec, nullptr, nullptr) == 0;
}

SoundMeter::~SoundMeter() {
  avcodec_free_context(&_codec);
  av_packet_free(&_packet);
  av_frame_free(&_frame);
}

void SoundMeter::Add(std::span<const std::uint8_t> bytes) {
  if (_codec != nullptr) return Decode(bytes);
  const std::size_t channels = _channels.size();
  for (std::size_t i = 0; i < bytes.size() / 2; ++i) {
    const auto sample = static_cast<std::int16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    _channels[i % channels].recent.Add(sample / kFullScale);
  }
}

// Frames that cannot be decoded do not count.
void SoundMeter::Decode(std::span<const std::uint8_t> bytes) {
  if (av_new_packet(_packet, static_cast<int>(bytes.size())) != 0) return;
  std::copy(bytes.begin(), bytes.end(), _packet->data);
  const bool is_sent = avcodec_send_packet(_codec, _packet) == 0;
  av_packet_unref(_packet);
  while (is_sent && avcodec_receive_frame(_codec, _frame) == 0) {
    const int left_out = std::min(_left_out, _frame->nb_samples);
    _left_out -= left_out;
    const auto planes = static_cast<std::size_t>(_frame->ch_layout.nb_channels);
    for (std::size_t i = 0; i < std::min(planes, _channels.size()); ++i) {
      const auto* samples = reinterpret_cast<const float*>(_frame->extended_data[i]);
      for (int n = left_out; n < _frame->nb_samples; ++n) _channels[i].recent.Add(samples[n]);
    }
  }
}

std::vector<SoundMeter::Level> SoundMeter::Recent(Clock::time_point now) {
  std::vector<Level> levels;
  for (Channel& channel : _channels) {
    const Sum recent = std::exchange(channel.recent, {});
    channel.total.Add(recent);
    if (recent.peak >= channel.held_peak || now >= channel.held_until) {
      channel.held_peak = recent.peak;
      channel.held_until = now + kPeakHold;
    }
    levels.push_back({Decibels(channel.held_peak), recent.ToLevel().rms_db});
  }
  return levels;
}

std::vector<SoundMeter::Level> SoundMeter::Total() const {
  std::vector<Level> levels;
  for (const Channel& channel : _channels) {
    Sum all = channel.total;
    all.Add(channel.recent);
    levels.push_back(all.ToLevel());
  }
  return levels;
}

std::string LevelText(std::span<const SoundMeter::Level> levels, double SoundMeter::Level::*which) {
  std::string text;
  for (const SoundMeter::Level& level : levels) {
    text += Format("%s%.1f", text.empty() ? "" : "/", level.*which);
  }
  return text;
}

}  // namespace tessel::tool
