#include "Arguments.h"

namespace tessel::tool {

void Refuse(const std::string& option, const std::string& reason) {
  throw CLI::ValidationError(option, reason);
}

CLI::Option* AddText(CLI::App& command, const std::string& names, const std::string& type,
                     const std::string& help, const TextCallback& read) {
  return command.add_option_function<std::string>(names, read, help)->type_name(type);
}

void AddRtos(CLI::App& command, std::string& socket) {
  command
      .add_option("--rtos", socket,
                  "Socket of a real-time side that runs already [$TESSEL_RTOS_SOCKET, else an own "
                  "one is started]")
      ->type_name("SOCKET");
}

void AddBoard(CLI::App& command, std::string& board) {
  command
      .add_option("--board", board,
                  "Description of the audio devices of a real-time side that is started here")
      ->type_name("FILE")
      ->excludes("--rtos");
}

}  // namespace tessel::tool
