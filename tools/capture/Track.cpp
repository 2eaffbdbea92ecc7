#include "Track.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "Console.h"
#include "MediaWriter.h"
#include "Units.h"

namespace tessel::tool {
namespace {

// The time stamps of a sound card jitter. Only a larger difference counts as a gap.
constexpr std::int64_t kSoundSlackNs = 10'000'000;
constexpr std::int64_t kMostSilenceNs = 60 * kSecondNs;  // in one piece
constexpr std::int64_t kMostLeadNs =
    600 * kSecondNs;  // how far a time stamp may lie from the clock

std::int64_t NowNs() {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

void Track::Begin(bool is_metered) {
  _format = stream.GetSource().Format();
  if (!stream.GetSource().IsSound()) return;
  _priming_ns = SoundNs(_format.priming_samples);
  if (is_metered) _meter = SoundMeter::Create(_format);
}

std::int64_t Track::SoundNs(std::int64_t samples) const {
  return (samples * kSecondNs + _format.rate / 2) / _format.rate;
}

std::int64_t Track::SamplesIn(const frame_t& frame) const {
  return _format.kind == MediaKind::kAac ? kAacFrame
                                         : std::int64_t{frame.size} / kPcmBytes / _format.channels;
}

// Of video.
std::int64_t Track::FrameNs() const {
  return kSecondNs / std::max(1, stream.GetSource().FramesPerSecond());
}

void Track::CorrectStamp(frame_t& frame) {
  const std::int64_t now_ns = NowNs();
  const bool is_first = _latest_stamp_ns == 0;
  const std::int64_t known_ns = std::max(now_ns, _latest_stamp_ns);
  const bool is_late = frame.timestamp > known_ns + kMostLeadNs;
  // The first time stamp becomes the origin of all times.
  const bool is_early = is_first && frame.timestamp < now_ns - kMostLeadNs;
  if (is_late || is_early) {
    const bool is_sound = stream.GetSource().IsSound();
    const std::int64_t span_ns = is_sound ? SoundNs(SamplesIn(frame)) : FrameNs();
    frame.timestamp = is_first ? now_ns : _latest_stamp_ns + span_ns;
    ++_corrected;
  }
  _latest_stamp_ns = std::max(_latest_stamp_ns, frame.timestamp);
}

bool Track::IsBehind(const frame_t& frame, std::int64_t end_ns) const {
  if (!_start_ns) return false;
  if (stream.GetSource().IsSound()) return PlaceSound(frame) >= end_ns;
  // Half a frame of jitter does not make one more.
  return frame.timestamp - _origin_ns + FrameNs() / 2 >= end_ns;
}

bool Track::Reaches(std::int64_t end_ns) const {
  return stream.GetSource().IsSound() && _start_ns && _end_ns >= end_ns;
}

bool Track::Write(const frame_t& frame, std::int64_t end_ns, MediaWriter& writer,
                  std::string& error) {
  const bool is_sound = stream.GetSource().IsSound();
  if (!(is_sound ? WriteSound(frame, end_ns, writer, error) : WriteVideo(frame, writer, error))) {
    return false;
  }
  ++_frames;
  if (frame.isKey) ++_key_frames;
  return true;
}

bool Track::WriteVideo(const frame_t& frame, MediaWriter& writer, std::string& error) {
  const std::int64_t time_ns = std::max(_last_ns, frame.timestamp - _origin_ns);
  if (!_start_ns) _start_ns = time_ns;
  _last_ns = time_ns;
  _end_ns = time_ns + FrameNs();
  _bytes += frame.size;
  return writer.Write(_number, {{frame.data, frame.size}, frame.isKey, time_ns, FrameNs()}, error);
}

// Right behind the samples before it, or at its time stamp when samples are missing in between.
std::int64_t Track::PlaceSound(const frame_t& frame) const {
  const std::int64_t stamped_ns = frame.timestamp - _origin_ns;
  const std::int64_t next_ns = _anchor_ns + SoundNs(_samples);
  const bool follows = _start_ns && stamped_ns - next_ns < kSoundSlackNs;
  return follows ? next_ns : stamped_ns;
}

bool Track::WriteSound(const frame_t& frame, std::int64_t end_ns, MediaWriter& writer,
                       std::string& error) {
  std::int64_t time_ns = PlaceSound(frame);
  const std::int64_t gap_ns = _start_ns ? time_ns - (_anchor_ns + SoundNs(_samples)) : 0;
  if (_format.kind == MediaKind::kPcm && _start_ns) {
    if (!WriteSilence(time_ns, writer, error)) return false;
    if (time_ns - _end_ns > kSoundSlackNs) return true;  // interrupted
  }
  _missing_ns += gap_ns;
  if (!_start_ns || time_ns != _anchor_ns + SoundNs(_samples)) {
    _anchor_ns = time_ns;
    _samples = 0;
  }
  if (!_start_ns) _start_ns = time_ns;
  if (_meter != nullptr) _meter->Add({frame.data, frame.size});
  std::size_t size_bytes = frame.size;
  std::int64_t samples = SamplesIn(frame);
  if (end_ns < time_ns + SoundNs(samples)) {
    samples =
        std::llround(static_cast<double>(end_ns - time_ns) * _format.rate / double{kSecondNs});
    if (samples <= 0) return true;
    // An AAC frame stays whole; its duration ends it early.
    if (_format.kind == MediaKind::kPcm)
      size_bytes = static_cast<std::size_t>(samples * kPcmBytes * _format.channels);
  }
  _samples += samples;
  _end_ns = _anchor_ns + SoundNs(_samples);
  _bytes += size_bytes;
  return writer.Write(_number, {{frame.data, size_bytes}, true, time_ns, _end_ns - time_ns}, error);
}

// A file of bare samples has no times, so gaps are filled. Ends early when the user interrupts.
bool Track::WriteSilence(std::int64_t until_ns, MediaWriter& writer, std::string& error) {
  while (until_ns > _end_ns && !_inbox->IsInterrupted()) {
    const std::int64_t span_ns = std::min(until_ns - _end_ns, kMostSilenceNs);
    const std::int64_t samples =
        std::llround(static_cast<double>(span_ns) * _format.rate / double{kSecondNs});
    if (samples == 0) return true;
    const std::vector<std::uint8_t> zeros(
        static_cast<std::size_t>(samples * kPcmBytes * _format.channels));
    if (!writer.Write(_number, {zeros, true, _end_ns, span_ns}, error)) return false;
    _samples += samples;
    _end_ns = _anchor_ns + SoundNs(_samples);
  }
  return true;
}

double Track::Seconds() const {
  // Video starts with its first frame, sound after its priming.
  const std::int64_t start_ns = _start_ns.value_or(0) + _priming_ns;
  return _start_ns ? static_cast<double>(_end_ns - start_ns) / double{kSecondNs} : 0;
}

std::vector<SoundMeter::Level> Track::RecentLevels(SoundMeter::Clock::time_point now) {
  return _meter != nullptr ? _meter->Recent(now) : std::vector<SoundMeter::Level>();
}

std::string Track::Summary() const {
  const auto count = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
  const double kilobits = static_cast<double>(_bytes) * 8 / 1000;
  const double kilobits_per_second = Seconds() > 0 ? kilobits / Seconds() : 0;
  const std::string corrected =
      _corrected == 0 ? "" : Format(", %llu with untrue time stamps", count(_corrected));
  if (!stream.GetSource().IsSound()) {
    return Format("%llu frames, %.2f s, %.0f kbit/s, %llu key frames, %llu dropped", count(_frames),
                  Seconds(), kilobits_per_second, count(_key_frames), count(stream.Dropped())) +
           corrected;
  }
  const double missing = static_cast<double>(_missing_ns) / double{kSecondNs};
  // Gaps in PCM are written as silence.
  const double written = _format.kind == MediaKind::kPcm ? Seconds() : Seconds() - missing;
  const std::int64_t samples = std::llround(written * _format.rate);
  std::string text =
      Format("%lld samples, %.2f s, %s, %.0f kbit/s", static_cast<long long>(samples), Seconds(),
             SoundText(_format.rate, _format.channels).c_str(), kilobits_per_second);
  if (_meter != nullptr) {
    const auto levels = _meter->Total();
    text += ", peak " + LevelText(levels, &SoundMeter::Level::peak_db) + " dBFS, RMS " +
            LevelText(levels, &SoundMeter::Level::rms_db) + " dBFS";
  }
  text += Format(", %llu dropped", count(stream.Dropped())) + corrected;
  return _missing_ns == 0 ? text : text + Format(", %.2f s missing", missing);
}

}  // namespace tessel::tool
