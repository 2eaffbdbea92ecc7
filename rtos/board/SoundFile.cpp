#include "SoundFile.h"

#include <algorithm>

namespace tessel::rtos {

std::unique_ptr<SoundFile> SoundFile::Open(const std::string& path, bool loop,
                                           const SoundFormat& format, std::string& error) {
  std::unique_ptr<SoundFile> file(new SoundFile(path, format));
  if (file->_reader.OpenFile(path) && file->ReadAhead(loop)) return file;
  error = file->_reader.Error();
  return nullptr;
}

SoundFile::SoundFile(const std::string& path, const SoundFormat& format)
    : _format(format),
      _ahead(static_cast<std::size_t>(format.rate) * static_cast<std::size_t>(format.channels)),
      _reader(MediaReader::Kind::kSound, path),
      _queue(format) {}

// The first second.
bool SoundFile::ReadAhead(bool loop) {
  while (!_is_over && _queue.Size() < _ahead) {
    if (!FillQueue()) return false;
  }
  if (_queue.Size() == 0) return _reader.FailWith("no sound in it");
  _loop = loop;
  if (!loop || !_is_over) return true;
  _short_file.resize(_queue.Size());
  _queue.Take(_short_file);
  return true;
}

void SoundFile::KeepLead() {
  const auto lead_ms = static_cast<std::size_t>(_reader.LeadNs() / 1'000'000);
  _silence = lead_ms * static_cast<std::size_t>(_format.rate) / 1000 *
             static_cast<std::size_t>(_format.channels);
}

void SoundFile::Repeat(std::span<std::int16_t> samples) {
  for (std::int16_t& sample : samples) {
    sample = _short_file[_place];
    _place = (_place + 1) % _short_file.size();
  }
}

SoundInput::Step SoundFile::Read(std::span<std::int16_t> samples, std::int64_t&) {
  const auto silent = samples.first(std::min(_silence, samples.size()));
  std::fill(silent.begin(), silent.end(), std::int16_t{0});
  _silence -= silent.size();
  samples = samples.subspan(silent.size());
  if (samples.empty()) return Step::kSamples;
  if (!_short_file.empty()) {
    Repeat(samples);
    return Step::kSamples;
  }
  while (_queue.Size() < samples.size() && !_is_over) {
    if (FillQueue()) continue;
    _error = _reader.Error();
    return Step::kFailed;
  }
  if (_queue.Size() == 0) return Step::kEnd;
  const std::size_t taken = _queue.Take(samples);
  std::fill(samples.begin() + static_cast<std::ptrdiff_t>(taken), samples.end(), std::int16_t{0});
  return Step::kSamples;
}

// Adds the next piece to the queue, or notes that there is none.
bool SoundFile::FillQueue() {
  MediaReader::Step step = _reader.Decode(*_frame);
  if (step == MediaReader::Step::kEnd && _loop) step = _reader.StartAnew(*_frame);
  if (step == MediaReader::Step::kFailed) return false;
  _is_over = step != MediaReader::Step::kFrame;
  const bool is_done = _is_over ? _queue.Finish() : _queue.Add(*_frame);
  return is_done || _reader.FailWith("its sound cannot be converted");
}

}  // namespace tessel::rtos
