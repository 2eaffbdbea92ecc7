// One connection from the Linux side: its window and its applications, which all end with it.
#pragma once

#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "Application.h"
#include "messages/Applications.h"
#include "messages/Hello.h"
#include "RealTimeSide.h"
#include "SharedWindow.h"
#include "UniqueFd.h"
#include "Wire.h"

namespace tessel::rtos {

// Connection thread, but for Hangup().
class Connection {
 public:
  // `side` has to outlive it.
  Connection(UniqueFd socket, RealTimeSide& side);

  // Serves requests until the client is gone, or memory is too short even for an answer; then
  // destroys the applications and unmaps the window.
  void Serve();
  // Any thread. Lets Serve() return once it has answered the request that it is serving.
  void Hangup() const;

 private:
  AttrSet AnswerTo(const std::string& untrusted);
  // Fill `answer`, or return false with `error` set.
  bool Dispatch(const AttrSet& untrusted, AttrSet& answer, std::string& error);
  bool Execute(const link::Hello& request, link::HelloAnswer& answer, std::string& error);
  bool Execute(const link::Create& request, link::CreateAnswer& answer, std::string& error);
  bool Execute(const link::DescribeMedia& request, link::MediaAnswer& answer, std::string& error);
  bool Execute(const link::SetStatus& request, link::Done&, std::string& error);
  bool Execute(const link::Destroy& request, link::Done&, std::string& error);

  bool IsInUse(std::span<const std::byte> area, const Grants& grants) const;
  bool ReadGrants(const link::Create& request, Grants& grants, std::string& error);
  Application* Find(link::Handle handle, std::string& error) const;
  void Send(link::WireMessage::Kind kind, std::uint32_t number, const AttrSet& body) const;
  void Report(std::uint64_t handle, link::Event::Kind kind, const std::string& text) const;

  const UniqueFd _socket;
  RealTimeSide& _side;
  const pid_t _client;
  std::vector<UniqueFd> _fds;                   // of the request that is being served
  std::unique_ptr<link::SharedWindow> _window;  // null before "hello"
  std::uint64_t _linux_base = 0;                // the window's address on the Linux side

  struct Listed {
    std::unique_ptr<Application> application;
    std::unique_ptr<StreamRegistry::Listing> listing;  // ends first
    std::vector<std::span<const std::byte>> areas;     // of its sessions
  };
  std::map<std::uint64_t, Listed> _applications;  // by handle
};

}  // namespace tessel::rtos
