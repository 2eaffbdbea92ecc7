// Serves several clients at once, each over a connection of its own, on a Unix socket.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <thread>

#include <sys/types.h>

#include "Connection.h"
#include "Doorbell.h"

namespace tessel::rtos {

// One thread.
class Listener {
 public:
  // Listens at `path`, which only this user may connect to (mode 0600). A socket that a dead
  // process has left there is replaced; a live one, or another file, is not. Null with `error`.
  // `side` has to outlive it.
  static std::unique_ptr<Listener> Create(const std::string& path, RealTimeSide& side,
                                          std::string& error);
  // Removes the socket, if it is still the one at its path.
  ~Listener();

  // Serves until SIGINT or SIGTERM comes, then ends all connections. REQUIRES: no other thread was
  // started before, so that all of them leave the signals to this one.
  bool Serve(std::string& error);

 private:
  struct Client {
    explicit Client(std::unique_ptr<Connection> served) : connection(std::move(served)) {}
    std::unique_ptr<Connection> connection;
    std::atomic<bool> is_over{false};
    std::thread thread;
  };

  Listener(std::string path, ino_t inode, UniqueFd socket, RealTimeSide& side)
      : _path(std::move(path)), _inode(inode), _socket(std::move(socket)), _side(side) {}
  // False when descriptors, memory or threads are short.
  bool Accept();
  void Reap();
  void End();
  void RemoveSocket() const;

  const std::string _path;
  const ino_t _inode;  // of the socket, in case somebody puts another one at its path
  const UniqueFd _socket;
  RealTimeSide& _side;
  const link::Doorbell _client_is_over = link::Doorbell::Create();
  std::list<Client> _clients;
};

}  // namespace tessel::rtos
