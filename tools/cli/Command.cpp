#include "Command.h"

namespace tessel::tool {

bool Command::Check(std::string& error) const {
  const std::string path = quill::host::RtosSocket();
  if (_host.board.empty() || path.empty()) return true;
  error = "--board: the real-time side at " + path + " has its own devices";
  return false;
}

void Command::AddSocket(const std::string& otherwise) {
  const std::string help = "Socket of a real-time side that runs already";
  _app.add_option("--rtos", _host.rtos_socket, help + " [$TESSEL_RTOS_SOCKET" + otherwise + "]")
      ->type_name("SOCKET");
}

void Command::AddRtos() { AddSocket(", else an own one is started"); }

void Command::AddRunningRtos() { AddSocket(""); }

void Command::AddBoard() {
  _app.add_option("--board", _host.board,
                  "Description of the audio devices of a real-time side that is started here")
      ->type_name("FILE");
}

}  // namespace tessel::tool
