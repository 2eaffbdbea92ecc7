// One connection to the real-time side: its process, the command channel and the applications.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <sys/types.h>

#include "CommandChannel.h"
#include "EventRouter.h"
#include "quill/AttrSet.h"
#include "RemoteApplications.h"
#include "RtosProcess.h"

namespace quill::stream {

// Alive until the real-time side dies or hangs up. Its applications end with it; only frames that
// are still held keep their memory. Any thread.
class RtosConnection final : public CommandChannel::Handler,
                             public std::enable_shared_from_this<RtosConnection> {
 public:
  // Connects to the socket that the options name, else to a process that it starts. Null with
  // `error` set. REQUIRES: one thread at a time.
  static std::shared_ptr<RtosConnection> Open(std::string& error);

  // Runs one command and adds its outputs to `args`, whose "cmd" names it and whose "timeout", in
  // ns, bounds the wait. False with `error` set.
  bool Run(base::AttrSet& args, std::string& error);

  bool IsAlive() const { return _channel.IsAlive(); }
  // Counts the connections of this process, from 1.
  std::uint64_t Number() const { return _number; }
  // Whether the connection of that number was in use and is no longer; false for 0.
  static bool IsLost(std::uint64_t number);
  pid_t Process() const { return _process_id; }
  const RemoteApplications& Applications() const { return _applications; }

 private:
  RtosConnection(const RtosProcess& process, tessel::UniqueFd socket);
  bool Handshake(std::string& error);
  // CommandChannel::Handler
  void OnEvent(const std::string& text) override { _events.OnEvent(text); }
  void OnDisconnect() override;

  const std::uint64_t _number;
  const RtosProcess _process;
  pid_t _process_id;  // constant after Handshake
  CommandChannel _channel;
  RemoteApplications _applications{_channel};
  EventRouter _events{_applications};
};

}  // namespace quill::stream
