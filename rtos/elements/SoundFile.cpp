#include "SoundFile.h"

#include <algorithm>

namespace tessel::rtos {

std::unique_ptr<SoundFile> SoundFile::Open(const std::string& path, bool loop,
                                           const SoundFormat& format, std::string& error) {
  std::unique_ptr<SoundFile> file(new SoundFile(path, loop, format));
  if (file->_reader.OpenFile(path) && file->FillQueue() &&
      (!file->_is_over || file->_reader.FailWith("no sound in it"))) {
    return file;
  }
  error = file->_reader.Error();
  return nullptr;
}

SoundFile::SoundFile(const std::string& path, bool loop, const SoundFormat& format)
    : _loop(loop), _reader(MediaReader::Kind::kSound, path), _queue(format) {}

SoundInput::Step SoundFile::Read(std::span<std::int16_t> samples, std::int64_t&) {
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
