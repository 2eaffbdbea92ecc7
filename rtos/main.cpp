// tessel-rtos: plays the real-time side of the chip. Started by the host with one end of the
// command wire; gone when the other end is.
#include <cstdlib>
#include <string>

#include <CLI/CLI.hpp>

#include "Connection.h"

int main(int argc, char** argv) {
  CLI::App app(
      "The real-time side of the camera: sensor, encoders and the shared-memory sink.\n"
      "It is started by the host library when a stream opens, and ends with it.");
  int connection = -1;
  app.add_option("--connection", connection, "file descriptor of the command wire (the host's)")
      ->required()
      ->check(CLI::NonNegativeNumber);
  CLI11_PARSE(app, argc, argv);
  tessel::rtos::Connection(tessel::link::UniqueFd(connection), tessel::rtos::BoardElements())
      .Serve();
  return EXIT_SUCCESS;
}
