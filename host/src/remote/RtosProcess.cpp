#include "RtosProcess.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "InstallPaths.h"
#include "quill/Host.h"
#include "Wire.h"

extern char** environ;

namespace quill::stream {
namespace {

using tessel::UniqueFd;

constexpr int kTheirSocket = 3;  // the descriptor under which the program finds its end of the wire

// How the program starts: with the files, the signals and the process group of its own.
class SpawnSettings {
 public:
  explicit SpawnSettings(int their_end) {
    posix_spawn_file_actions_init(&_files);
    // The program does not share the client's input and output: a pipe must end when the client
    // does.
    posix_spawn_file_actions_addopen(&_files, 0, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&_files, 0, 1);
    posix_spawn_file_actions_adddup2(&_files, their_end, kTheirSocket);
    posix_spawnattr_init(&_attributes);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&_attributes, &none);
    posix_spawnattr_setsigdefault(&_attributes, &all);
    // Ctrl-C in a terminal reaches the client alone, which then ends the real-time side.
    posix_spawnattr_setpgroup(&_attributes, 0);
    posix_spawnattr_setflags(
        &_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  ~SpawnSettings() {
    posix_spawnattr_destroy(&_attributes);
    posix_spawn_file_actions_destroy(&_files);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  const posix_spawn_file_actions_t* Files() const { return &_files; }
  const posix_spawnattr_t* Attributes() const { return &_attributes; }

 private:
  posix_spawn_file_actions_t _files = {};
  posix_spawnattr_t _attributes = {};
};

std::vector<std::string> CommandLine(const std::string& program, const host::Options& options) {
  std::vector<std::string> words = {program, "--connection=" + std::to_string(kTheirSocket)};
  if (!options.board.empty()) words.push_back("--board=" + options.board);
  words.insert(words.end(), options.rtos_arguments.begin(), options.rtos_arguments.end());
  return words;
}

}  // namespace

UniqueFd RtosProcess::Connect(const std::string& path, std::string& error) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  error = "the real-time side at " + path + ": ";
  if (path.size() >= sizeof address.sun_path) {
    error += "the path is longer than " + std::to_string(sizeof address.sun_path - 1);
    return {};
  }
  std::memcpy(address.sun_path, path.c_str(), path.size());
  auto socket = UniqueFd::AboveStandard(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  // Before connect(), which waits as long as a send when the listener's queue is full.
  if (socket.IsOpen()) tessel::link::LimitSends(socket.Get());
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (!socket.IsOpen() || connect(socket.Get(), generic, sizeof address) != 0) {
    error += std::strerror(errno);
    return {};
  }
  return socket;
}

UniqueFd RtosProcess::Spawn(std::string& error) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    error = std::string("no socket for the real-time side: ") + std::strerror(errno);
    return {};
  }
  auto our_end = UniqueFd::AboveStandard(ends[0]);
  // Above the numbers that SpawnSettings fills: filling those would close it.
  const UniqueFd their_end(fcntl(ends[1], F_DUPFD_CLOEXEC, kTheirSocket + 1));
  const int failure = errno;
  close(ends[1]);
  if (!our_end.IsOpen() || !their_end.IsOpen()) {
    error = std::string("no socket for the real-time side: ") + std::strerror(failure);
    return {};
  }
  tessel::link::LimitSends(our_end.Get());
  const std::string asked = host::GetOptions().rtos_program;
  const std::string program = asked.empty() ? FindProgram("tessel-rtos") : asked;
  if (program.empty()) {
    error = "tessel-rtos stands neither beside " + LibraryFolder() + " nor where it is installed";
    return {};
  }
  return Execute(program, their_end.Get(), error) ? std::move(our_end) : UniqueFd();
}

bool RtosProcess::Execute(const std::string& program, int their_end, std::string& error) {
  std::vector<std::string> words = CommandLine(program, host::GetOptions());
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const SpawnSettings settings(their_end);
  const int failure = posix_spawn(&_child, program.c_str(), settings.Files(), settings.Attributes(),
                                  arguments.data(), environ);
  if (failure == 0) return true;
  _child = 0;
  error = "cannot start " + program + ": " + std::strerror(failure);
  return false;
}

void RtosProcess::End() const {
  if (_child == 0 || waitpid(_child, nullptr, WNOHANG) != 0) return;
  kill(_child, SIGKILL);
  waitpid(_child, nullptr, 0);  // the threads that call this get no signals
}

}  // namespace quill::stream
