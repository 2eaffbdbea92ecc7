#include "Arguments.h"

#include "quill/Host.h"

namespace tessel::tool {
namespace {

void AddSocket(CLI::App& command, std::string& socket, const std::string& otherwise) {
  const std::string help = "Socket of a real-time side that runs already";
  command.add_option("--rtos", socket, help + " [$TESSEL_RTOS_SOCKET" + otherwise + "]")
      ->type_name("SOCKET");
}

}  // namespace

void Refuse(const std::string& option, const std::string& reason) {
  throw CLI::ValidationError(option, reason);
}

CLI::Option* AddText(CLI::App& command, const std::string& names, const std::string& type,
                     const std::string& help, const TextCallback& read) {
  return command.add_option_function<std::string>(names, read, help)->type_name(type);
}

void AddRtos(CLI::App& command, std::string& socket) {
  AddSocket(command, socket, ", else an own one is started");
}

void AddRunningRtos(CLI::App& command, std::string& socket) { AddSocket(command, socket, ""); }

void AddBoard(CLI::App& command, std::string& board) {
  command
      .add_option("--board", board,
                  "Description of the audio devices of a real-time side that is started here")
      ->type_name("FILE");
}

bool CheckBoard(std::string& error) {
  const std::string path = quill::host::FarSideSocket();
  if (quill::host::GetOptions().board.empty() || path.empty()) return true;
  error = "--board: the real-time side at " + path + " has its own devices";
  return false;
}
}  // namespace tessel::tool
