// What runs on this real-time side, for whoever watches or steers it from another client.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include <sys/types.h>

#include "Application.h"

namespace tessel::rtos {

// All applications of the process. Any thread.
class Directory {
 public:
  // Keeps one application listed for its own life.
  class Listing {
   public:
    Listing(Directory& directory, std::uint64_t handle) : _directory(directory), _handle(handle) {}
    // When it returns nobody looks at the application any more.
    ~Listing() { _directory.Remove(_handle); }
    Listing(const Listing&) = delete;
    Listing& operator=(const Listing&) = delete;

   private:
    Directory& _directory;
    const std::uint64_t _handle;
  };

  Directory();

  // No handle of one process is a handle of the next, or of another connection.
  std::uint64_t NewHandle();
  // `application` has to outlive its listing; `client` is the process that owns it.
  std::unique_ptr<Listing> Add(std::uint64_t handle, Application& application, pid_t client);

  // A page of the list: "streams", one set an application by its number, as Application::Overview()
  // has it, from the handle `from` on; and "next", the handle of the next page where there is one.
  AttrSet List(std::uint64_t from) const;
  // Stores `value` in a word of the rate-control block of the stream `number`. False with `error`.
  bool SetWord(int number, const std::string& word, int value, std::string& error);
  // Counts a request up: "keyframe_req" or "trigger_req".
  bool CountRequest(int number, const std::string& word, std::string& error);

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
