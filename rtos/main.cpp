// tessel-rtos: plays the real-time side of the chip. Started by the host with one end of the
// command wire, and gone when the other end is; or by hand, to serve several clients on a socket.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>
#include <thread>

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "AudioDevices.h"
#include "Connection.h"
#include "ElementTable.h"
#include "Listener.h"
#include "quill/StandardDescriptors.h"

#include <CLI/CLI.hpp>

namespace tessel::rtos {
namespace {

constexpr char kExamples[] = R"(Example:
  tessel-rtos --listen /tmp/board &
  TESSEL_RTOS_SOCKET=/tmp/board tessel capture h264 -o clip.mp4 --seconds 10
)";

int ListenAt(const std::string& path, RealTimeSide& side) {
  std::string error;
  const auto listener = Listener::Create(path, side, error);
  if (listener == nullptr || !listener->Serve(error)) {
    std::fprintf(stderr, "tessel-rtos: cannot listen: %s\n", error.c_str());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

// Ends the process two seconds after its connection, even when another thread is stuck: an input
// may block in the kernel.
void EndWith(int connection) {
  try {
    std::thread([connection] {
      pollfd wire = {connection, 0, 0};  // a hang-up is always reported
      while (poll(&wire, 1, -1) < 0) {
      }
      sleep(2);
      _exit(EXIT_SUCCESS);
    }).detach();
  } catch (const std::system_error&) {
    // Goes on: without this thread the process still ends, once its inputs return.
  }
}

int Run(int argc, char** argv) {
  CLI::App app(
      "The real-time side of the camera: sensor, encoders and the shared-memory sink.\n"
      "The host library starts one when a stream opens and ends it; started by hand it serves\n"
      "several clients until it is told to end (Ctrl-C).",
      "tessel-rtos");
  app.footer(kExamples);
  signal(SIGPIPE, SIG_IGN);  // a client may send the descriptor of a pipe
  int connection = -1;
  std::string path;
  std::string board;
  auto* inherited =
      app.add_option("--connection", connection, "File descriptor of the command wire (the host's)")
          ->check(CLI::NonNegativeNumber);
  app.add_option("--listen", path, "Unix socket to serve clients on; only this user may connect")
      ->type_name("PATH")
      ->excludes(inherited);
  app.add_option("--board", board, "Description of the board's audio devices [the usual ones]")
      ->type_name("FILE");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& stop) {
    return app.exit(stop) == 0 ? EXIT_SUCCESS : 2;
  }
  if (connection >= 0) EndWith(connection);
  std::string error;
  auto devices = board.empty() ? AudioDevices::Usual() : AudioDevices::Load(board, error);
  if (!devices) {
    std::fprintf(stderr, "tessel-rtos: %s\n", error.c_str());
    return EXIT_FAILURE;
  }
  RealTimeSide side{ElementTable(), *devices};
  if (!path.empty()) return ListenAt(path, side);
  if (connection < 0) {
    std::fputs("tessel-rtos: --listen PATH is missing; see --help\n", stderr);
    return 2;
  }
  Connection(UniqueFd(connection), side).Serve();
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace tessel::rtos

int main(int argc, char** argv) {
  quill::base::FillStandardDescriptors();
  return tessel::rtos::Run(argc, argv);
}
