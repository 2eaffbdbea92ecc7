// The host's debug streams and the lines written to them. One line is
//
//   [colour] path "/" line "/" function ":\t" message "\n" [colour off]
//
// where the colour escapes stand only if the stream wants them (a terminal does).
#pragma once

#include <cstring>
#include <string>

#include "quill/ostream_string.h"

namespace quill::stream {

enum DebugLevel : int {
  kError = 0,   // failed checks
  kNotice = 1,  // what a maintainer looks for when something is odd
  kTrace = 2,   // every step
  kDebugLevels = 3,
};

// A host output stream. Write() is called with one whole line. Any thread.
class QUILL_PUBLIC DebugStream : public base::ostream {
 public:
  virtual bool IsEnabled() const = 0;
  virtual bool WantsColour() const = 0;
};

// One stream per level; replace an entry to redirect it, put the old one back to undo that. By
// default they write to stderr, up to the level named by the environment variable QUILL_DEBUG
// ("none", "error", "notice", "trace"; default "error"). Change them only while nothing logs.
QUILL_PUBLIC extern DebugStream* __dbg_couts[kDebugLevels];  // NOLINT(bugprone-reserved-identifier)

// Leading characters to cut from a source path before it is printed.
QUILL_PUBLIC extern int __root_path_offset;  // NOLINT(bugprone-reserved-identifier)

inline constexpr char kRed[] = "\033[31m";      // a failed check
inline constexpr char kGreen[] = "\033[32m";    // notices of particular source files
inline constexpr char kYellow[] = "\033[33m";   //
inline constexpr char kMagenta[] = "\033[35m";  //
inline constexpr char kCyan[] = "\033[36m";     // a trace
inline constexpr char kColourOff[] = "\033[0m";

// A text together with the place in the source that it was passed at. Function parameters of this
// type capture their caller's place when a literal is passed.
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

// Writes one line; `message` follows the place. Any thread. Compiled into each plug-in, which
// needs nothing of the host for it but the streams above.
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

// Logs what Failed() logs, where nothing is left to decide. Not inlined: checks stand on the path
// of every frame, and this does not.
template <typename... Details>
[[gnu::noinline, gnu::cold]] void Fail(const At& text, const Details&... details) {
  if (!__dbg_couts[kError]->IsEnabled()) return;
  base::ostream_string message;
  message << text.text;
  if constexpr (sizeof...(details) > 0) ((message << ",") << ... << details);
  WriteLine(kError, kRed, text, message.str());
}

// Logs the failed condition `text`, then "," and `details` if there are any, and hands `failed`
// back:  if (Failed(!_app, "!_app")) return false;
template <typename... Details>
[[nodiscard]] bool Failed(bool failed, const At& text, const Details&... details) {
  if (failed) Fail(text, details...);
  return failed;
}

// A line in `colour` of `text` and `details`, without anything between.
template <typename... Details>
void TraceIn(const char* colour, const At& text, const Details&... details) {
  if (!__dbg_couts[kTrace]->IsEnabled()) return;
  base::ostream_string message;
  message << text.text;
  if constexpr (sizeof...(details) > 0) (message << ... << details);
  WriteLine(kTrace, colour, text, message.str());
}

// The same in cyan, as most traces are.
template <typename... Details>
void Trace(const At& text, const Details&... details) {
  TraceIn(kCyan, text, details...);
}

}  // namespace quill::stream
