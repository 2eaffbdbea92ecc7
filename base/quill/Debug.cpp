#include "quill/Debug.h"

#include <cerrno>
#include <cstdlib>

#include <strings.h>
#include <unistd.h>

namespace quill::stream {
namespace {

// The highest level that the environment asks for; -1 for none. Read once, at load.
int WantedLevel() {
  const char* wanted = std::getenv("QUILL_DEBUG");
  if (wanted == nullptr) return kError;
  static constexpr const char* kNames[] = {"none", "error", "notice", "trace"};
  for (int i = 0; i < 4; ++i) {
    if (strcasecmp(wanted, kNames[i]) == 0) return i - 1;
  }
  return kError;
}

class StderrStream : public DebugStream {
 public:
  explicit StderrStream(DebugLevel level) : _enabled(level <= WantedLevel()) {}

  // One write for a line keeps the lines of several threads and processes apart.
  void Write(std::string_view text) override {
    while (_enabled && !text.empty()) {
      const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return;  // stderr is closed or full: a log line is not worth a failure
      text.remove_prefix(static_cast<std::size_t>(written));
    }
  }
  bool IsEnabled() const override { return _enabled; }
  bool WantsColour() const override { return _is_terminal; }

 private:
  const bool _enabled;
  const bool _is_terminal = isatty(STDERR_FILENO) == 1;
};

// Never destroyed: objects that log may outlive any order of static destruction. Kept here as well,
// so that one which is redirected is still somebody's.
StderrStream* const g_stderr[kDebugLevels] = {new StderrStream(kError), new StderrStream(kNotice),
                                              new StderrStream(kTrace)};

}  // namespace

DebugStream* __dbg_couts[kDebugLevels] = {g_stderr[kError], g_stderr[kNotice], g_stderr[kTrace]};

int __root_path_offset = 0;  // paths are relative to the project already, by a compiler option

}  // namespace quill::stream
