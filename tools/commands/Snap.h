// `tessel snap`: still pictures.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tessel::tool {

// Ranges of the single values are checked where they are read.
struct SnapOptions {
  std::vector<std::string> urls;  // "file://…", or paths; "%d" and "%03d" become the round
  int count = 1;                  // pictures of each URL
  int interval_ms = 0;            // from request to request; 0: each when the last one is there
  std::optional<int> width;       // pixels
  std::optional<int> height;      // pixels
  std::optional<int> qp;
  bool photography = false;  // by the photography class

  std::string sensor = "test";
  bool once = false;     // a media file is played once
  bool unpaced = false;  // as fast as it goes
};

// Takes them one after the other, a line each; the exit code. One that could not be written does
// not end the others; where none can come any more it does.
int Snap(const SnapOptions& options);

}  // namespace tessel::tool
