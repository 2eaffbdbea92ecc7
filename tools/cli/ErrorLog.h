// The host's error lines, kept from the terminal and turned into one readable reason.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "quill/Debug.h"

namespace tessel::tool {

// Collects the lines of failed checks. Any thread.
class ErrorLog : public quill::stream::DebugStream {
 public:
  void Write(std::string_view text) override;
  bool IsEnabled() const override { return true; }
  bool WantsColour() const override { return false; }

  void Clear();
  // The first reason since Clear(): the innermost check fails first, and knows most. Empty when
  // nothing was logged.
  std::string Reason() const;

  // Collects from now on, as long as the process lives. With QUILL_DEBUG set it collects nothing:
  // the user sees the lines themselves. Call once, before anything can log.
  static void Install();
  // The reason collected since Forget(), or a hint where to find one.
  static std::string LastReason();
  static void Forget();

 private:
  mutable std::mutex _mutex;
  std::vector<std::string> _lines;  // guarded by _mutex
};

// Hides the error lines of an expected failure, as long as it lives.
// REQUIRES: no other thread logs meanwhile.
class ErrorsMuted {
 public:
  ErrorsMuted();
  ~ErrorsMuted();
  ErrorsMuted(const ErrorsMuted&) = delete;
  ErrorsMuted& operator=(const ErrorsMuted&) = delete;

 private:
  ErrorLog _log;
  quill::stream::DebugStream* _before;
};

}  // namespace tessel::tool
