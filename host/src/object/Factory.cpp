#include "quill/Factory.h"

#include <exception>
#include <utility>

namespace quill::base {

Factory& Factory::Globle() {
  static auto* factory = new Factory;  // never destroyed: objects run commands until the very end
  return *factory;
}

bool Factory::Run(const char* command, AttrSet& args) {
  Command found;
  if (command != nullptr) {
    const std::lock_guard lock(_mutex);
    const auto place = _commands.find(command);
    if (place != _commands.end()) found = place->second;
  }
  if (stream::Failed(!found, "!command", "no command: ", command)) return false;
  try {
    return found(args);
  } catch (const std::exception& thrown) {
    stream::Fail("!found(args)", command, ": ", thrown.what());
  } catch (...) {
    stream::Fail("!found(args)", command, " throws");
  }
  return false;
}

Factory::Command Factory::ReplaceCommand(const char* name, Command command) {
  if (name == nullptr) return nullptr;
  const std::lock_guard lock(_mutex);
  Command before = std::exchange(_commands[name], std::move(command));
  return before;
}

std::any Factory::ExchangeFunction(const char* name, std::any function) {
  if (name == nullptr) return {};
  const std::lock_guard lock(_mutex);
  return std::exchange(_functions[name], std::move(function));
}

}  // namespace quill::base
