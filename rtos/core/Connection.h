// One connection from the Linux side: its window and its applications. All of it goes when the
// connection goes.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Application.h"
#include "RealTimeSide.h"
#include "SharedWindow.h"
#include "UniqueFd.h"
#include "Wire.h"

namespace tessel::rtos {

// One thread, but for Hangup() and what chains report.
class Connection {
 public:
  // `side` has to outlive it.
  Connection(UniqueFd socket, RealTimeSide& side);

  // Serves commands until the other side is gone, or memory is too short even for an answer; ends
  // its applications before it returns.
  void Serve();
  // Makes Serve() return. Any thread.
  void Hangup() const;

 private:
  using Fds = std::vector<UniqueFd>;
  void ServeOne(const link::WireMessage& message, Fds& fds);
  void Report(std::uint64_t handle, const char* kind, const std::string& text) const;
  // Fill `answer`, or return false with `error` set.
  bool HandleWhole(const AttrSet& request, Fds& fds, AttrSet& answer, std::string& error);
  bool Handle(const AttrSet& request, Fds& fds, AttrSet& answer, std::string& error);
  bool Hello(const AttrSet& request, Fds& fds, AttrSet& answer, std::string& error);
  bool Create(const AttrSet& request, Fds& fds, AttrSet& answer, std::string& error);
  bool Describe(const AttrSet& request, AttrSet& answer, std::string& error);
  bool SetStatus(const AttrSet& request, std::string& error);
  bool Destroy(const AttrSet& request, std::string& error);
  // Of all clients' streams.
  bool SetWord(const AttrSet& request, std::string& error);
  bool CountRequest(const AttrSet& request, std::string& error);

  bool ReadGrants(const AttrSet& request, Fds& fds, Grants& grants, std::string& error) const;
  Application* Find(const AttrSet& request, std::uint64_t& handle, std::string& error) const;
  void Send(link::WireMessage::Kind kind, std::uint32_t number, const AttrSet& body) const;

  const UniqueFd _socket;
  RealTimeSide& _side;
  const pid_t _client;
  std::unique_ptr<link::SharedWindow> _window;  // null before "hello"
  std::uint64_t _linux_base = 0;                // the window's address on the Linux side

  struct Listed {
    std::unique_ptr<Application> application;
    std::unique_ptr<Directory::Listing> listing;  // ends first
  };
  std::map<std::uint64_t, Listed> _applications;  // by handle
};

}  // namespace tessel::rtos
