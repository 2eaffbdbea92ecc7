#include "Listener.h"

#include <cerrno>
#include <cstring>
#include <system_error>

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace tessel::rtos {
namespace {

using link::UniqueFd;

constexpr int kBacklog = 16;

std::string Reason() { return std::strerror(errno); }

bool BindTo(int socket_fd, const sockaddr_un& address) {
  // The mode is right from the first moment on.
  const mode_t before = umask(0177);
  const int bound = bind(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int failure = errno;
  umask(before);
  errno = failure;
  return bound == 0;
}

// Whether the socket at that address is what a dead process has left.
bool IsLeftOver(const sockaddr_un& address) {
  struct stat file = {};
  if (lstat(address.sun_path, &file) != 0 || !S_ISSOCK(file.st_mode)) return false;
  const UniqueFd probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const int connected =
      connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return connected != 0 && errno == ECONNREFUSED;
}

}  // namespace

std::unique_ptr<Listener> Listener::Create(const std::string& path,
                                           std::span<const ElementRow> elements,
                                           std::string& error) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    error = "\"" + path + "\" is no path of 1 to " + std::to_string(sizeof address.sun_path - 1) +
            " characters";
    return nullptr;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size());
  UniqueFd socket_fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  bool is_bound = socket_fd.IsOpen() && BindTo(socket_fd.Get(), address);
  if (!is_bound && errno == EADDRINUSE && IsLeftOver(address)) {
    unlink(path.c_str());
    is_bound = BindTo(socket_fd.Get(), address);
  }
  if (!is_bound || listen(socket_fd.Get(), kBacklog) != 0) {
    error = path + ": " + Reason();
    return nullptr;
  }
  return std::unique_ptr<Listener>(new Listener(path, std::move(socket_fd), elements));
}

Listener::~Listener() { unlink(_path.c_str()); }

bool Listener::Serve(std::string& error) {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  const UniqueFd signals(signalfd(-1, &ends, SFD_CLOEXEC));
  if (!signals.IsOpen()) {
    error = Reason();
    return false;
  }
  pollfd news[] = {{_socket.Get(), POLLIN, 0}, {signals.Get(), POLLIN, 0}};
  while (news[1].revents == 0) {
    if (poll(news, 2, -1) < 0 && errno != EINTR) break;
    if (news[0].revents != 0) Accept();
    Reap();
  }
  for (const Client& client : _clients) client.connection->Hangup();
  for (Client& client : _clients) client.thread.join();
  return true;
}

void Listener::Accept() {
  UniqueFd socket_fd(accept4(_socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket_fd.IsOpen()) return;  // it is gone already, or there are no descriptors left
  // A client that does not read must not keep a chain from running.
  const timeval send_timeout = {.tv_sec = 1, .tv_usec = 0};
  setsockopt(socket_fd.Get(), SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
  Client& client = _clients.emplace_back(
      std::make_unique<Connection>(std::move(socket_fd), _elements, _directory));
  try {
    client.thread = std::thread([&client] {
      pthread_setname_np(pthread_self(), "tessel-client");
      client.connection->Serve();
      client.is_over = true;
    });
  } catch (const std::system_error&) {
    _clients.pop_back();  // hangs up; the client is told that nobody is there
  }
}

// A connection's thread that is over is joined with the next news.
void Listener::Reap() {
  for (auto client = _clients.begin(); client != _clients.end();) {
    if (client->is_over) {
      client->thread.join();
      client = _clients.erase(client);
    } else {
      ++client;
    }
  }
}

}  // namespace tessel::rtos
