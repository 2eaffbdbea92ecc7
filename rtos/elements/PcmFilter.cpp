#include "PcmFilter.h"

#include <cstring>
#include <string>

#include "Clock.h"
#include "ElementParams.h"

namespace tessel::rtos {
namespace {

// What a unit may have above its share: one frame where the rates do not divide, and at the end
// what the converter keeps back, half the length of its filter. That is 16 frames at the lower of
// the two rates: at most 96 of the result, from 8000 to 48000 samples/s.
constexpr std::size_t kSpareFrames = 128;

std::size_t SamplesOf(std::size_t frames, const SoundFormat& format) {
  return frames * static_cast<std::size_t>(format.channels);
}

}  // namespace

bool PcmFilter::Open(const Context& context, const AttrSet& params, Media& media,
                     std::string& error) {
  _from = {media.sample_rate, media.channels};
  _to = _from;
  if (!CheckKnown(params, {"rate", "ch"}, error) ||
      !ReadInt(params, "rate", 8000, 48000, _to.rate, error) ||
      !ReadInt(params, "ch", 1, 2, _to.channels, error)) {
    return false;
  }
  if (_from.rate <= 0 || _from.channels <= 0 || media.frames_per_second <= 0) {
    error = "no sound comes from the elements in front";
    return false;
  }
  _is_last = context.Encoder() == nullptr;
  _is_converting = _from != _to;
  if (_is_converting) {
    _converter = SoundConverter::Create(_from, _to);
    if (_converter == nullptr) {
      error = "the sound cannot be converted";
      return false;
    }
    const std::size_t frames = media.unit_bytes / sizeof(std::int16_t) / SamplesOf(1, _from);
    const auto rate = static_cast<std::size_t>(_to.rate);
    _samples.resize(
        SamplesOf(frames * rate / static_cast<std::size_t>(_from.rate) + kSpareFrames, _to));
    media.unit_bytes = _samples.size() * sizeof(std::int16_t);
  }
  Describe(media);
  return true;
}

void PcmFilter::Describe(Media& media) const {
  media.sample_rate = _to.rate;
  media.channels = _to.channels;
  media.description = AttrSet();
  if (!_is_last) return;
  media.description.Add(media_key::kCodec, "pcm");
  media.description.Add(media_key::kSampleRate, _to.rate);
  media.description.Add(media_key::kChannels, _to.channels);
  media.description.Add(media_key::kFormat, "s16le");
  media.description.Add(media_key::kSampleBits, 16);
  media.description.Add(media_key::kBlock, _to.rate / media.frames_per_second);
}

// The samples that the old converter keeps back do not belong to the new run.
void PcmFilter::Start() {
  if (_is_converting && _is_used) _converter = SoundConverter::Create(_from, _to);
  _is_used = false;
  _is_drained = false;
}

Verdict PcmFilter::Process(Unit& unit) {
  if (_is_converting) return Convert(unit.samples, unit.time_ns, unit);
  return Write(unit);
}

Verdict PcmFilter::Drain(Unit& unit) {
  const Verdict verdict = Convert({}, _next_ns, unit);
  _is_drained = true;
  return verdict == Verdict::kNeedMore ? Verdict::kEnd : verdict;
}

Verdict PcmFilter::Convert(std::span<const std::int16_t> samples, std::int64_t time_ns,
                           Unit& unit) {
  if (_converter == nullptr) return FailWith("the sound cannot be converted");
  unit.time_ns = time_ns - _converter->DelayNs();
  _is_used = true;
  const int frames = _converter->Convert(samples, _samples);
  if (frames < 0) return FailWith("a block cannot be converted");
  const auto input_frames = static_cast<std::int64_t>(samples.size() / SamplesOf(1, _from));
  _next_ns = time_ns + input_frames * kSecondNs / _from.rate;
  unit.samples = std::span(_samples).first(SamplesOf(static_cast<std::size_t>(frames), _to));
  return frames == 0 ? Verdict::kNeedMore : Write(unit);
}

Verdict PcmFilter::Write(Unit& unit) {
  if (!_is_last) return Verdict::kPass;
  unit.is_key = true;  // every block stands alone
  if (unit.room.empty()) return Verdict::kPass;
  if (unit.samples.size_bytes() > unit.room.size()) {
    return FailWith("a block does not fit into " + std::to_string(unit.room.size()) + " bytes");
  }
  std::memcpy(unit.room.data(), unit.samples.data(), unit.samples.size_bytes());
  unit.size_bytes = unit.samples.size_bytes();
  return Verdict::kPass;
}

}  // namespace tessel::rtos
