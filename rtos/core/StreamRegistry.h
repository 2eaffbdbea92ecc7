// The streams of all connections of the process, so that a client can list and steer those of
// others. A stream is an application under a number that people can type.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <sys/types.h>

#include "Application.h"
#include "messages/Streams.h"

namespace tessel::rtos {

// Any thread.
class StreamRegistry {
 public:
  // Keeps one application listed for its own life.
  class Listing {
   public:
    Listing(StreamRegistry& registry, std::uint64_t handle)
        : _registry(registry), _handle(handle) {}
    // When it returns no other thread uses the application.
    ~Listing() { _registry.Remove(_handle); }
    Listing(const Listing&) = delete;
    Listing& operator=(const Listing&) = delete;

   private:
    StreamRegistry& _registry;
    const std::uint64_t _handle;
  };

  StreamRegistry();

  // Unique among all connections, and unlike those of other processes.
  std::uint64_t NewHandle();
  // `application` has to outlive its listing; `client` is the process that owns it.
  std::unique_ptr<Listing> Add(std::uint64_t handle, Application& application, pid_t client);

  // Serve the requests of watchers. False with `error` when there is no such stream, or it does not
  // read that word. A list holds as many streams as fit into a message; `next` says where the rest
  // begins.
  bool Execute(const link::ListStreams& request, link::ListAnswer& page, std::string& error) const;
  bool Execute(const link::SetWord& request, link::Done&, std::string& error);
  bool Execute(const link::CountRequest& request, link::Done&, std::string& error);

 private:
  struct Entry {
    Application* application;
    pid_t client;
  };
  void Remove(std::uint64_t handle);
  Application* Find(int number, std::string& error) const;  // REQUIRES: _mutex is held

  mutable std::mutex _mutex;
  std::uint64_t _last_handle;               // guarded by _mutex
  std::map<std::uint64_t, Entry> _entries;  // guarded by _mutex; by handle
};

}  // namespace tessel::rtos
