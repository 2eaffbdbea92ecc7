// The host's commands: functions that are run by name.
#pragma once

#include <any>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "quill/AttrSet.h"
#include "quill/Debug.h"

namespace quill::base {

// Any thread. The lock is held for a look-up only, never while a function runs.
class QUILL_PUBLIC Factory {
 public:
  using Command = std::function<bool(AttrSet&)>;

  static Factory& Globle();

  // Runs a command, which adds its outputs to `args`. False when it is unknown, fails or throws.
  bool Run(const char* command, AttrSet& args);

  // Calls the function registered under `name` with this very signature and stores its result.
  // False, and logged, when there is none. The look-up is compiled into the plug-in.
  template <typename Result, typename... Args>
  bool Call(const char* name, Result& result, Args... args) {
    const std::any found = FindFunction(name);
    const auto* function = std::any_cast<std::function<Result(Args...)>>(&found);
    if (stream::Failed(function == nullptr, "!obj", "no func:", name)) return false;
    try {
      result = (*function)(args...);
      return true;
    } catch (...) {
      return !stream::Failed(true, "!obj", "throws:", name);
    }
  }

  // Registers or replaces a command or a typed function and returns the former one, so that the
  // new one can call it and the caller can restore it. An empty one removes the name. A null name
  // changes nothing.
  Command ReplaceCommand(const char* name, Command command);
  template <typename Signature>
  std::function<Signature> ReplaceFunction(const char* name, std::function<Signature> function) {
    const std::any before =
        ExchangeFunction(name, function ? std::any(std::move(function)) : std::any());
    const auto* typed = std::any_cast<std::function<Signature>>(&before);
    return typed == nullptr ? std::function<Signature>() : *typed;
  }

 private:
  Factory() = default;
  std::any FindFunction(const char* name) {
    if (name == nullptr) return {};
    const std::lock_guard lock(_mutex);
    const auto place = _functions.find(name);
    return place == _functions.end() ? std::any() : place->second;
  }
  std::any ExchangeFunction(const char* name, std::any function);

  std::mutex _mutex;
  std::map<std::string, Command, std::less<>> _commands;    // guarded by _mutex
  std::map<std::string, std::any, std::less<>> _functions;  // guarded by _mutex
};

// Announces a plug-in to the host, which calls `announce` once the library that holds this function
// is loaded as a plug-in. Returns the number of plug-ins announced so far; 0, and logged, where a
// function or a text is null. Called by the plug-in's static initialiser.
QUILL_PUBLIC int ReflectAdd(void (*announce)(const char*), int flags, const char* name,
                            const char* version);

}  // namespace quill::base
