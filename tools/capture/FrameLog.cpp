#include "FrameLog.h"

#include <cerrno>
#include <cstring>

namespace tessel::tool {

bool FrameLog::Open(const std::string& path, std::string& error) {
  if (path.empty()) return true;
  _file.reset(path == "-" ? stdout : std::fopen(path.c_str(), "we"));
  if (_file != nullptr) return true;
  error = std::strerror(errno);
  return false;
}

bool FrameLog::Write(const api::streaming::common::frame_t& frame, int bit_rate_bps,
                     const std::string& source, std::string& error) {
  if (_file == nullptr) return true;
  const std::string tail = source.empty() ? "" : ",\"source\":\"" + source + "\"";
  std::fprintf(_file.get(),
               "{\"seq\":%u,\"timestamp\":%lld,\"size\":%u,\"key\":%s,\"bit_rate\":%d%s}\n",
               frame.seq, static_cast<long long>(frame.timestamp), frame.size,
               frame.isKey ? "true" : "false", bit_rate_bps, tail.c_str());
  // A reader that follows the log gets each line at once.
  if (std::fflush(_file.get()) == 0) return true;
  error = std::strerror(errno);
  return false;
}

}  // namespace tessel::tool
