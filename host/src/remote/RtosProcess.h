// The process of the real-time side: how the host starts it, reaches it and ends it.
#pragma once

#include <string>

#include <sys/types.h>

#include "UniqueFd.h"

namespace quill::stream {

// At most one child process. One thread at a time.
class RtosProcess {
 public:
  // Starts the program that the options name. Returns the host's end of the command wire; not open,
  // with `error` set, when that fails.
  tessel::UniqueFd Spawn(std::string& error);
  // Connects to a real-time side that listens at `path`. As Spawn(), but there is no child then.
  static tessel::UniqueFd Connect(const std::string& path, std::string& error);

  // The child's process id; 0 when none was started.
  pid_t Child() const { return _child; }
  // Collects the child's exit status; kills the child first when it still runs. Call it once: the
  // system may give the id to another process afterwards.
  void End() const;

 private:
  bool Execute(const std::string& program, int their_end, std::string& error);

  pid_t _child = 0;
};

}  // namespace quill::stream
