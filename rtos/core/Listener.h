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

// Main thread.
class Listener {
 public:
  // Listens at `path`, which only this user may connect to (mode 0600). Replaces a socket whose
  // process has died, but neither a socket in use nor another file: null with `error`. `side` has
  // to outlive it.
  static std::unique_ptr<Listener> Create(const std::string& path, RealTimeSide& side,
                                          std::string& error);
  // Removes the socket's file, unless another process has replaced it.
  ~Listener();

  // Accepts clients until SIGINT or SIGTERM comes, then ends all connections; ends the process if
  // one of them does not end within two seconds. False with `error`. REQUIRES: no other thread was
  // started before: they inherit the signals that this one blocks.
  bool Serve(std::string& error);

 private:
  struct Client {
    explicit Client(std::unique_ptr<Connection> served) : connection(std::move(served)) {}
    std::unique_ptr<Connection> connection;
    std::atomic<bool> is_over{false};  // set by `thread` as its last act
    std::thread thread;
  };

  Listener(std::string path, ino_t inode, UniqueFd socket, RealTimeSide& side)
      : _path(std::move(path)), _inode(inode), _socket(std::move(socket)), _side(side) {}
  // False when descriptors, memory or threads are short.
  bool Accept();
  void JoinEnded();
  void EndAll();
  void RemoveSocket() const;

  const std::string _path;
  const ino_t _inode;  // of the socket's file
  const UniqueFd _socket;
  RealTimeSide& _side;
  const link::Doorbell _client_is_over = link::Doorbell::Create();
  std::list<Client> _clients;
};

}  // namespace tessel::rtos
