#include "quill/Factory.h"

#include <utility>

namespace quill::base {

Factory& Factory::Globle() {
  static auto* factory = new Factory;  // never destroyed: objects run commands until the very end
  return *factory;
}

bool Factory::Run(const char* command, AttrSet& args) {
  Command found;
  {
    const std::lock_guard lock(_mutex);
    const auto place = _commands.find(command);
    if (place != _commands.end()) found = place->second;
  }
  if (stream::Failed(!found, "!command", "no command: ", command)) return false;
  return found(args);
}

Factory::Command Factory::ReplaceCommand(const char* name, Command command) {
  const std::lock_guard lock(_mutex);
  Command before = std::exchange(_commands[name], std::move(command));
  return before;
}

std::any Factory::FindFunction(const char* name) {
  const std::lock_guard lock(_mutex);
  const auto place = _functions.find(name);
  return place == _functions.end() ? std::any() : place->second;
}

std::any Factory::ExchangeFunction(const char* name, std::any function) {
  const std::lock_guard lock(_mutex);
  return std::exchange(_functions[name], std::move(function));
}

}  // namespace quill::base
