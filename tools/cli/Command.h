// A command of the tool: its options, its arguments and its run.
#pragma once

#include <string>

#include "quill/Host.h"

#include <CLI/CLI.hpp>

namespace tessel::tool {

// Created before the command line is read, which it lives longer than. Client's thread.
class Command {
 public:
  virtual ~Command() = default;
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // Whether the command line names it.
  bool IsChosen() const { return _app.parsed(); }
  // The host's options as the command line sets them.
  const quill::host::Options& HostOptions() const { return _host; }
  // False with `error` when options that are valid one by one do not go together.
  [[nodiscard]] virtual bool Check(std::string& error) const;
  // Whether Run() calls WatchInterrupts(). HoldInterrupts() must then come before the first thread.
  virtual bool WatchesInterrupts() const { return false; }
  // Returns the exit code. REQUIRES: Check(), and the plug-in is loaded. Call once.
  virtual int Run() = 0;

 protected:
  Command(CLI::App& tool, const char* name, const std::string& help, const std::string& footer)
      : _app(*tool.add_subcommand(name, help)) {
    _app.footer(footer);
  }

  // An option "--rtos": the command uses the real-time side that listens there.
  void AddRtos();
  // The same, for a command that starts no real-time side.
  void AddRunningRtos();
  // An option "--board" for a real-time side that is started here.
  void AddBoard();

  CLI::App& _app;
  quill::host::Options _host = quill::host::GetOptions();

 private:
  void AddSocket(const std::string& otherwise);
};

}  // namespace tessel::tool
