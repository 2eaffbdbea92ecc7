#include "Listener.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "Clock.h"

namespace tessel::rtos {
namespace {

constexpr int kBacklog = 16;
constexpr std::int64_t kPauseNs = 100'000'000;  // from one attempt to accept a client to the next

std::string Reason() { return std::strerror(errno); }

bool BindTo(int socket_fd, const sockaddr_un& address) {
  // The file has to have its mode from the moment on that it exists.
  const mode_t before = umask(0177);
  const int bound = bind(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int failure = errno;
  umask(before);
  errno = failure;
  return bound == 0;
}

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

// Whether the socket at `path` belongs to no process any more: connecting to it is refused.
bool IsLeftOver(const std::string& path) {
  struct stat file = {};
  if (lstat(path.c_str(), &file) != 0 || !S_ISSOCK(file.st_mode)) return false;
  const auto probe =
      UniqueFd::AboveStandard(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = AddressOf(path);
  const int connected =
      connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return connected != 0 && errno == ECONNREFUSED;
}

ino_t InodeOf(const std::string& path) {
  struct stat file = {};
  return lstat(path.c_str(), &file) == 0 ? file.st_ino : 0;
}

std::string WhyOccupied(const std::string& path) {
  struct stat file = {};
  const bool is_other = lstat(path.c_str(), &file) == 0 && !S_ISSOCK(file.st_mode);
  return is_other ? "exists and is no socket" : "another process listens there";
}

}  // namespace

// A socket that does not listen yet looks like one of a dead process. So it listens under a name of
// its own first, and gets the name `path` then.
std::unique_ptr<Listener> Listener::Create(const std::string& path, RealTimeSide& side,
                                           std::string& error) {
  const std::string first_path = path + "." + std::to_string(getpid());
  constexpr std::size_t kLongest = sizeof(sockaddr_un::sun_path) - 9;  // leaves room for that
  if (path.empty() || path.size() > kLongest) {
    error = "\"" + path + "\" is no path of 1 to " + std::to_string(kLongest) + " characters";
    return nullptr;
  }
  auto socket_fd = UniqueFd::AboveStandard(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!socket_fd.IsOpen() || !BindTo(socket_fd.Get(), AddressOf(first_path)) ||
      listen(socket_fd.Get(), kBacklog) != 0) {
    error = path + ": " + Reason();
    unlink(first_path.c_str());
    return nullptr;
  }
  const ino_t inode = InodeOf(first_path);
  const bool is_free = ::link(first_path.c_str(), path.c_str()) == 0;
  if (!is_free) error = path + ": " + (errno == EEXIST ? WhyOccupied(path) : Reason());
  const bool is_ours =
      is_free || (IsLeftOver(path) && rename(first_path.c_str(), path.c_str()) == 0);
  unlink(first_path.c_str());
  if (!is_ours) return nullptr;
  return std::unique_ptr<Listener>(new Listener(path, inode, std::move(socket_fd), side));
}

Listener::~Listener() { RemoveSocket(); }

void Listener::RemoveSocket() const {
  if (InodeOf(_path) == _inode) unlink(_path.c_str());
}

bool Listener::Serve(std::string& error) {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  const auto signals = UniqueFd::AboveStandard(signalfd(-1, &ends, SFD_CLOEXEC));
  if (!signals.IsOpen()) {
    error = Reason();
    return false;
  }
  pollfd events[] = {
      {_socket.Get(), POLLIN, 0}, {signals.Get(), POLLIN, 0}, {_client_is_over.Fd(), POLLIN, 0}};
  std::int64_t resume_ns = 0;  // no client is accepted before
  while (events[1].revents == 0) {
    const std::int64_t pause_ns = std::max<std::int64_t>(resume_ns - NowNs(), 0);
    events[0].fd = pause_ns > 0 ? -1 : _socket.Get();
    const int pause_ms = pause_ns > 0 ? static_cast<int>(pause_ns / 1'000'000) + 1 : -1;
    if (poll(events, std::size(events), pause_ms) < 0) {
      if (errno == EINTR) continue;  // `events` still holds what the call before found
      break;
    }
    if (events[2].revents != 0) JoinEnded();
    // The client stays in the queue. No event tells when resources are free again, so it is tried
    // from time to time.
    if (events[0].revents != 0 && !Accept()) resume_ns = NowNs() + kPauseNs;
  }
  EndAll();
  return true;
}

// A stuck connection must not keep the process alive.
void Listener::EndAll() {
  for (const Client& client : _clients) client.connection->Hangup();
  const std::int64_t deadline_ns = NowNs() + 2 * kSecondNs;
  while (!_clients.empty()) {
    pollfd event = {_client_is_over.Fd(), POLLIN, 0};
    const auto left_ms = static_cast<int>((deadline_ns - NowNs()) / 1'000'000);
    if (left_ms <= 0 || poll(&event, 1, left_ms) <= 0) break;
    JoinEnded();
  }
  if (_clients.empty()) return;
  RemoveSocket();
  _exit(EXIT_SUCCESS);
}

bool Listener::Accept() {
  auto socket_fd = UniqueFd::AboveStandard(accept4(_socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket_fd.IsOpen()) {
    // With any other error the client has gone: that is no shortage.
    return errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM;
  }
  try {
    _clients.emplace_back(std::make_unique<Connection>(std::move(socket_fd), _side));
    Client& client = _clients.back();
    client.thread = std::thread([this, &client] {
      pthread_setname_np(pthread_self(), "tessel-client");
      client.connection->Serve();
      client.is_over = true;
      _client_is_over.Ring();
    });
    return true;
  } catch (const std::exception&) {
    // Closes the socket: the client's connection ends.
    _clients.remove_if([](const Client& client) { return !client.thread.joinable(); });
    return false;
  }
}

void Listener::JoinEnded() {
  _client_is_over.Sleep();  // does not wait: it has been rung
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
