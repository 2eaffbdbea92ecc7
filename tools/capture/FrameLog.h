// One JSON line a frame.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "tessel/frame_t.h"

namespace tessel::tool {

// One thread at a time.
class FrameLog {
 public:
  // `path` "-" is standard output, "" no log at all. False with `error` when it cannot be written.
  [[nodiscard]] bool Open(const std::string& path, std::string& error);
  // `bit_rate_bps` is what the encoder measured last; `source` goes into the line unless it is
  // empty.
  [[nodiscard]] bool Write(const api::streaming::common::frame_t& frame, int bit_rate_bps,
                           const std::string& source, std::string& error);

 private:
  struct Close {
    void operator()(std::FILE* file) const {
      if (file != stdout) std::fclose(file);
    }
  };
  std::unique_ptr<std::FILE, Close> _file;
};

}  // namespace tessel::tool
