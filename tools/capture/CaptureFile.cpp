#include "CaptureFile.h"

#include <filesystem>
#include <system_error>

namespace tessel::tool {
namespace {

bool Fail(const std::string& failure, std::string& error) {
  error.insert(0, failure + ": ");
  return false;
}

}  // namespace

std::string CaptureFile::Name() const {
  return _options.output == kStandardOutput ? "standard output" : _options.output;
}

bool CaptureFile::Prepare(const std::vector<MediaFormat>& formats, std::string& error) {
  for (const MediaFormat& format : formats) {
    if (format.kind != MediaKind::kRaw || TakesFormat(_container, format.pixel_format, error)) {
      continue;
    }
    return Fail("cannot write " + Name(), error);
  }
  if (_log.Open(_options.frame_log, error)) return true;
  return Fail("cannot write " + _options.frame_log, error);
}

bool CaptureFile::Begin(const std::vector<MediaFormat>& formats, std::string& error) {
  _writer = MediaWriter::Open(_container, _options.output, formats, error);
  if (_writer != nullptr) return true;
  return Fail("cannot write " + Name(), error);
}

bool CaptureFile::Write(Track& track, const Track::frame_t& frame, std::int64_t end_ns,
                        bool is_named, std::string& error) {
  if (!track.Write(frame, end_ns, *_writer, error)) {
    _is_broken = true;
    return Fail("cannot write " + Name(), error);
  }
  const CaptureSource& source = track.stream.GetSource();
  if (_log.Write(frame, source.BitRate(), is_named ? source.name : "", error)) return true;
  return Fail("cannot write " + _options.frame_log, error);
}

bool CaptureFile::Finish(std::string& error) {
  if (_writer == nullptr) return true;
  const bool is_finished = _writer->Finish(error);
  _writer.reset();
  if (is_finished || _is_broken) return true;
  _is_broken = true;
  return Fail("cannot finish " + Name(), error);
}

void CaptureFile::Remove() {
  std::error_code failure;
  const bool is_file =
      std::filesystem::is_regular_file(std::filesystem::symlink_status(_options.output, failure));
  if (is_file) std::filesystem::remove(_options.output, failure);
}

}  // namespace tessel::tool
