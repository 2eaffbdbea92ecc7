#include "quill/Debug.h"

#include <cerrno>
#include <cstdlib>

#include <strings.h>
#include <unistd.h>

namespace quill::stream {
namespace {

// The highest level that QUILL_DEBUG enables; -1 for none. Read once, at load.
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

  // One write() per line keeps the lines of several threads and processes apart.
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

// Never destroyed, because objects may log during static destruction. This array keeps a stream
// reachable for leak checkers while its level is redirected.
StderrStream* const g_stderr[kDebugLevels] = {new StderrStream(kError), new StderrStream(kNotice),
                                              new StderrStream(kTrace)};

}  // namespace

DebugStream* __dbg_couts[kDebugLevels] = {g_stderr[kError], g_stderr[kNotice], g_stderr[kTrace]};

int __root_path_offset = 0;  // a compiler option makes paths relative to the project

}  // namespace quill::stream
