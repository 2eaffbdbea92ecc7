#include "SoundConverter.h"

#include <vector>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include "Clock.h"

namespace tessel::rtos {

void SoundConverter::Free::operator()(SwrContext* context) const { swr_free(&context); }

std::unique_ptr<SoundConverter> SoundConverter::Create(const SoundFormat& from,
                                                       const SoundFormat& to) {
  return Create(from, AV_SAMPLE_FMT_S16, to, AV_SAMPLE_FMT_S16);
}

std::unique_ptr<SoundConverter> SoundConverter::Create(const SoundFormat& from,
                                                       int from_sample_format,
                                                       const SoundFormat& to,
                                                       int to_sample_format) {
  AVChannelLayout from_layout = {};
  AVChannelLayout to_layout = {};
  av_channel_layout_default(&from_layout, from.channels);
  av_channel_layout_default(&to_layout, to.channels);
  SwrContext* context = nullptr;
  const int made = swr_alloc_set_opts2(
      &context, &to_layout, static_cast<AVSampleFormat>(to_sample_format), to.rate, &from_layout,
      static_cast<AVSampleFormat>(from_sample_format), from.rate, 0, nullptr);
  std::unique_ptr<SoundConverter> converter(new SoundConverter);
  converter->_context.reset(context);
  converter->_from_channels = from.channels;
  converter->_to_channels = to.channels;
  if (made < 0) return nullptr;
  // Left alone, the library makes a mix of equal channels louder, where samples are floating-point,
  // and copies of one channel softer.
  av_opt_set_double(context, "rematrix_maxval", 1, 0);
  if (from.channels == 1 && to.channels > 1) {
    const std::vector<double> copies(static_cast<std::size_t>(to.channels), 1.0);
    if (swr_set_matrix(context, copies.data(), 1) < 0) return nullptr;
  }
  // Filtering in 16 bits adds noise of its own.
  if (from.rate != to.rate)
    av_opt_set_sample_fmt(context, "internal_sample_fmt", AV_SAMPLE_FMT_FLTP, 0);
  if (swr_init(context) < 0) return nullptr;
  return converter;
}

int SoundConverter::Convert(const std::uint8_t* const* in, int frames, std::uint8_t* const* out,
                            int capacity) {
  // The library changes neither the pointers nor what lies behind those of `in`.
  return swr_convert(_context.get(), const_cast<std::uint8_t**>(out), capacity,
                     const_cast<const std::uint8_t**>(in), frames);
}

int SoundConverter::Convert(std::span<const std::int16_t> in, std::span<std::int16_t> out) {
  const auto* from = reinterpret_cast<const std::uint8_t*>(in.data());
  auto* to = reinterpret_cast<std::uint8_t*>(out.data());
  const int frames = static_cast<int>(in.size()) / _from_channels;
  return Convert(frames == 0 ? nullptr : &from, frames, &to,
                 static_cast<int>(out.size()) / _to_channels);
}

std::int64_t SoundConverter::DelayNs() const { return swr_get_delay(_context.get(), kSecondNs); }

int SoundConverter::MostFrames(int input_frames) const {
  return swr_get_out_samples(_context.get(), input_frames);
}

}  // namespace tessel::rtos
