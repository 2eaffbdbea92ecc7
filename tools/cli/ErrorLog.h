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
  // The first reason given since Clear(): checks fail from the inside out, and the innermost one
  // knows most. Empty when nothing was logged.
  std::string Reason() const;

  // Collects from now on, for as long as the process lives. Whoever sets QUILL_DEBUG wants to see
  // the lines themselves: then nothing is collected. Call once, before anything can log.
  static void Install();
  // The reason collected since Forget(), or a hint where to find it.
  static std::string LastReason();
  static void Forget();

 private:
  mutable std::mutex _mutex;
  std::vector<std::string> _lines;  // guarded by _mutex
};

// Keeps the error lines of a failure that is meant to happen away from everybody, for its own life.
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
