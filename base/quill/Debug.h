// The host's debug streams and the lines written to them. One line is
//
//   [colour] path "/" line "/" function ":\t" message "\n" [colour off]
//
// The colour escapes are written only if the stream wants them, as a terminal does.
#pragma once

#include <cstring>
#include <string>

#include "quill/ostream_string.h"

namespace quill::stream {

enum DebugLevel : int {
  kError = 0,   // failed checks
  kNotice = 1,  // facts that help a maintainer to find a fault
  kTrace = 2,   // every step
  kDebugLevels = 3,
};

// A host output stream. Each call of Write() gets one whole line. Any thread.
class QUILL_PUBLIC DebugStream : public base::ostream {
 public:
  virtual bool IsEnabled() const = 0;
  virtual bool WantsColour() const = 0;
};

// One stream per level. Replace an entry to redirect a level; put the old entry back to undo that.
// By default they write to stderr, up to the level named by the environment variable QUILL_DEBUG
// ("none", "error", "notice", "trace"; default "error"). Change an entry only while no thread logs.
QUILL_PUBLIC extern DebugStream* __dbg_couts[kDebugLevels];  // NOLINT(bugprone-reserved-identifier)

// Leading characters to cut from a source path before it is printed.
QUILL_PUBLIC extern int __root_path_offset;  // NOLINT(bugprone-reserved-identifier)

inline constexpr char kRed[] = "\033[31m";      // a failed check
inline constexpr char kGreen[] = "\033[32m";    // notices, and traces of some source files
inline constexpr char kYellow[] = "\033[33m";   // traces of some source files
inline constexpr char kMagenta[] = "\033[35m";  // traces of some source files
inline constexpr char kCyan[] = "\033[36m";     // a trace
inline constexpr char kColourOff[] = "\033[0m";

// A text and the place in the source that passed it. A function parameter of this type captures its
// caller's place when a literal is passed.
struct At {
  // NOLINTNEXTLINE(google-explicit-constructor): the conversion is what captures the place
  At(const char* the_text, const char* the_file = __builtin_FILE(), int the_line = __builtin_LINE(),
     const char* the_function = __builtin_FUNCTION())
      : text(the_text), file(the_file), line(the_line), function(the_function) {}
  const char* text;
  const char* file;
  int line;
  const char* function;
};

// Writes one line; `message` follows the place. Any thread. Inline, so that a plug-in needs only
// the streams above from the host.
[[gnu::noinline]] inline void WriteLine(DebugLevel level, const char* colour, const At& at,
                                        const std::string& message) {
  DebugStream* stream = __dbg_couts[level];
  if (!stream->IsEnabled()) return;
  const auto cut = static_cast<std::size_t>(__root_path_offset);
  const char* path = std::strlen(at.file) >= cut ? at.file + cut : at.file;
  base::ostream_string line;
  if (stream->WantsColour()) line << colour;
  line << path << "/" << at.line << "/" << at.function << ":\t" << message << "\n";
  if (stream->WantsColour()) line << kColourOff;
  stream->Write(line.str());
}

// Logs a failed condition like Failed(), without testing it. Not inlined: every frame passes the
// checks, and few of them fail.
template <typename... Details>
[[gnu::noinline, gnu::cold]] void Fail(const At& text, const Details&... details) {
  if (!__dbg_couts[kError]->IsEnabled()) return;
  base::ostream_string message;
  message << text.text;
  if constexpr (sizeof...(details) > 0) ((message << ",") << ... << details);
  WriteLine(kError, kRed, text, message.str());
}

// If `failed`, logs the condition `text`, then "," and `details` if there are any. Returns
// `failed`:
//   if (Failed(!_app, "!_app")) return false;
template <typename... Details>
[[nodiscard]] bool Failed(bool failed, const At& text, const Details&... details) {
  if (failed) Fail(text, details...);
  return failed;
}

// Writes a trace line in `colour`: `text` and `details`, without separators.
template <typename... Details>
void TraceIn(const char* colour, const At& text, const Details&... details) {
  if (!__dbg_couts[kTrace]->IsEnabled()) return;
  base::ostream_string message;
  message << text.text;
  if constexpr (sizeof...(details) > 0) (message << ... << details);
  WriteLine(kTrace, colour, text, message.str());
}

// The same in cyan, the usual colour of traces.
template <typename... Details>
void Trace(const At& text, const Details&... details) {
  TraceIn(kCyan, text, details...);
}

}  // namespace quill::stream
