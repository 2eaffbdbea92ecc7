#include "Wire.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>

namespace tessel::link {
namespace {

using Head = std::array<std::uint32_t, 2>;  // kind, number
using FdBuffer = std::array<char, CMSG_SPACE(sizeof(int) * kMaxMessageFds)>;

}  // namespace

void LimitSends(int socket_fd) {
  const timeval most = {.tv_sec = 1, .tv_usec = 0};
  setsockopt(socket_fd, SOL_SOCKET, SO_SNDTIMEO, &most, sizeof most);
}

SendResult SendMessage(int socket_fd, const WireMessage& message, const std::vector<int>& fds) {
  if (message.text.size() > kMaxMessageBytes - sizeof(Head) || fds.size() > kMaxMessageFds) {
    return SendResult::kTooLong;
  }
  Head head = {message.kind, message.number};
  iovec parts[] = {{head.data(), sizeof head},
                   {const_cast<char*>(message.text.data()), message.text.size()}};
  msghdr packet = {};
  packet.msg_iov = parts;
  packet.msg_iovlen = 2;
  alignas(cmsghdr) FdBuffer control = {};
  if (!fds.empty()) {
    packet.msg_control = control.data();
    packet.msg_controllen = CMSG_SPACE(sizeof(int) * fds.size());
    cmsghdr* entry = CMSG_FIRSTHDR(&packet);
    entry->cmsg_level = SOL_SOCKET;
    entry->cmsg_type = SCM_RIGHTS;
    entry->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
    std::memcpy(CMSG_DATA(entry), fds.data(), sizeof(int) * fds.size());
  }
  ssize_t sent = 0;
  do {
    sent = sendmsg(socket_fd, &packet, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  if (sent >= 0) return SendResult::kSent;
  return errno == EAGAIN ? SendResult::kBusy : SendResult::kGone;
}

bool ReceiveMessage(int socket_fd, WireMessage& message, std::vector<UniqueFd>& fds) {
  fds.clear();
  message.text.resize(kMaxMessageBytes);
  Head head = {};
  iovec parts[] = {{head.data(), sizeof head}, {message.text.data(), message.text.size()}};
  msghdr packet = {};
  packet.msg_iov = parts;
  packet.msg_iovlen = 2;
  alignas(cmsghdr) FdBuffer control = {};
  packet.msg_control = control.data();
  packet.msg_controllen = control.size();
  ssize_t got = 0;
  do {
    got = recvmsg(socket_fd, &packet, MSG_CMSG_CLOEXEC);
  } while (got < 0 && errno == EINTR);
  if (got <= 0) return false;
  for (cmsghdr* entry = CMSG_FIRSTHDR(&packet); entry != nullptr;
       entry = CMSG_NXTHDR(&packet, entry)) {
    if (entry->cmsg_level != SOL_SOCKET || entry->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (entry->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int fd = -1;
      std::memcpy(&fd, CMSG_DATA(entry) + i * sizeof(int), sizeof fd);
      fds.push_back(UniqueFd::AboveStandard(fd));
    }
  }
  const auto size = static_cast<std::size_t>(got);
  const bool is_whole = size >= sizeof head && (packet.msg_flags & MSG_TRUNC) == 0;
  message.kind = is_whole ? head[0] : static_cast<std::uint32_t>(WireMessage::kEvent);
  message.number = is_whole ? head[1] : 0;
  message.text.resize(is_whole ? size - sizeof head : 0);
  // Read as a C string, a text with a NUL would end early. No reader accepts this one.
  if (message.text.find('\0') != std::string::npos) message.text = "}";
  return true;
}

}  // namespace tessel::link
