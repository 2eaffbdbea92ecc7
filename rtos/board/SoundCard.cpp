#include "SoundCard.h"

#include <cstdlib>
#include <optional>

#include <time.h>

extern "C" {
#include <libavutil/frame.h>
}

#include "Clock.h"

namespace tessel::rtos {
namespace {

// Stamps are a few milliseconds off at the most, unless samples were lost.
constexpr std::int64_t kMostJitterNs = 50'000'000;
constexpr std::int64_t kSmoothing = 32;  // pieces until most of a difference is taken up
// No device keeps sound for longer; a stamp that says so, or one of the future, is of a wall clock
// that has been set meanwhile.
constexpr std::int64_t kMostAgeNs = 2 * kSecondNs;

// Of the wall clock, by which devices are stamped.
std::int64_t WallLeadNs() {
  timespec wall = {};
  clock_gettime(CLOCK_REALTIME, &wall);
  return wall.tv_sec * kSecondNs + wall.tv_nsec - NowNs();
}

}  // namespace

void SoundClock::Add(std::int64_t stamp_ns, std::int64_t duration_ns) {
  const std::int64_t off_ns = stamp_ns - _end_ns;
  const bool has_jumped = !_has_begun || std::abs(off_ns) > kMostJitterNs;
  const std::int64_t start_ns = has_jumped ? stamp_ns : _end_ns + off_ns / kSmoothing;
  _end_ns = start_ns + duration_ns;
  _has_begun = true;
}

std::unique_ptr<SoundCard> SoundCard::Open(const std::string& device, const std::string& name,
                                           const SoundFormat& format, std::string& error) {
  for (const int channels : {format.channels, 3 - format.channels}) {
    std::unique_ptr<SoundCard> card(new SoundCard(name, format));
    const MediaReader::Option options[] = {
        {"sample_rate", std::to_string(format.rate)},
        {"channels", std::to_string(channels)},
    };
    if (card->_reader.OpenDevice("alsa", device, options)) return card;
    error = card->_reader.Error();
  }
  return nullptr;
}

SoundCard::SoundCard(const std::string& name, const SoundFormat& format)
    : _reader(MediaReader::Kind::kSound, name), _queue(format) {}

void SoundCard::Start() {
  constexpr int kMostPieces = 1'000;  // no buffer holds as many; the bound is ours
  for (int i = 0; i < kMostPieces; ++i) {
    if (_reader.Decode(*_frame) != MediaReader::Step::kFrame) break;
  }
  _queue.Clear();
  _clock = SoundClock();
}

SoundInput::Step SoundCard::Read(std::span<std::int16_t> samples, std::int64_t& time_ns) {
  while (_queue.Size() < samples.size()) {
    const MediaReader::Step step = _reader.Decode(*_frame);
    if (step == MediaReader::Step::kNothingYet) return Step::kNothingYet;
    if (step == MediaReader::Step::kFrame && AddFrame()) continue;
    _error = _reader.Error();
    return Step::kFailed;
  }
  time_ns = _clock.EndNs() - _queue.LengthNs();
  _queue.Take(samples);
  return Step::kSamples;
}

bool SoundCard::AddFrame() {
  if (!_queue.Add(*_frame)) return _reader.FailWith("its sound cannot be converted");
  const std::int64_t duration_ns = _frame->nb_samples * kSecondNs / _frame->sample_rate;
  const std::int64_t now_ns = NowNs();
  const std::int64_t stamp_ns = _reader.StampNs(*_frame).value_or(0) - WallLeadNs();
  const bool is_plausible = stamp_ns <= now_ns && now_ns - stamp_ns <= kMostAgeNs;
  _clock.Add(is_plausible ? stamp_ns : now_ns - duration_ns, duration_ns);
  return true;
}

}  // namespace tessel::rtos
