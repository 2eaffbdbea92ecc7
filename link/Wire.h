// The command wire: a socket that keeps message borders (SOCK_SEQPACKET). A message is
//
//   0  kind    32 bits  request, answer or event
//   4  number  32 bits  pairs an answer with its request; 0 for an event
//   8  text    an attribute set, without a terminating NUL
//
// and may carry file descriptors. What it says is defined in messages/. Both sides treat what they
// receive as untrusted.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "UniqueFd.h"

namespace tessel::link {

inline constexpr std::size_t kMaxMessageBytes =
    std::size_t{128} * 1024;  // below the kernel's default buffer
inline constexpr std::size_t kMaxMessageFds = 8;

struct WireMessage {
  enum Kind : std::uint32_t { kRequest = 1, kAnswer = 2, kEvent = 3 };
  std::uint32_t kind = kEvent;
  std::uint32_t number = 0;
  std::string text;
};

// Bounds SendMessage() to one second while the receiver does not read.
void LimitSends(int socket_fd);

enum class SendResult { kSent, kTooLong, kBusy, kGone };

// Any thread. Blocks while the receiver's buffer is full, until the socket's SO_SNDTIMEO has
// passed: then it returns kBusy. kTooLong: the text, or too many descriptors. kGone: the peer has
// closed the socket. `fds` are duplicated on the way and stay with the caller.
SendResult SendMessage(int socket_fd, const WireMessage& message, const std::vector<int>& fds = {});

// Waits for the next message. False when the peer has closed the socket. A malformed message
// arrives as an event without text, a text with a NUL as one that no reader accepts.
bool ReceiveMessage(int socket_fd, WireMessage& message, std::vector<UniqueFd>& fds);

}  // namespace tessel::link
