// `tessel top`: how the streams of the real-time side are going, live.
#pragma once

#include <string>
#include <vector>

namespace tessel::tool {

struct TopOptions {
  std::vector<std::string> names;  // sources to play in this process, as FindCreatable() takes them
  bool json = false;               // a line a stream, else a screen
  double interval_s = 1;
  int count = 0;  // looks; 0: until interrupted
};

// Shows every stream of the real-time side, those of other clients too. REQUIRES: that it is called
// once, before any other thread is started. The exit code.
int Top(const TopOptions& options);

}  // namespace tessel::tool
