#include "Connection.h"

#include <algorithm>
#include <new>

#include <sys/socket.h>
#include <unistd.h>

#include "Doorbell.h"
#include "SessionLayout.h"

namespace tessel::rtos {
namespace {

using link::WireMessage;

constexpr std::size_t kLongestName = 255;  // of a session: lists of them have to fit into an answer

pid_t PeerOf(int socket_fd) {
  ucred peer = {};
  socklen_t size_bytes = sizeof peer;
  return getsockopt(socket_fd, SOL_SOCKET, SO_PEERCRED, &peer, &size_bytes) == 0 ? peer.pid : 0;
}

}  // namespace

Connection::Connection(UniqueFd socket, RealTimeSide& side)
    : _socket(std::move(socket)), _side(side), _client(PeerOf(_socket.Get())) {
  link::LimitSends(_socket.Get());  // a client that does not read must not hold a chain
}

void Connection::Hangup() const { shutdown(_socket.Get(), SHUT_RDWR); }

void Connection::Serve() {
  try {
    WireMessage message;
    while (ReceiveMessage(_socket.Get(), message, _fds)) {
      if (message.kind != WireMessage::kRequest) continue;
      Send(WireMessage::kAnswer, message.number, AnswerTo(message.text));
    }
  } catch (const std::bad_alloc&) {
    // Goes on: this client is lost; the memory that it used may be enough for the others.
  }
  // The client hands the memory out again once this has hung up.
  _applications.clear();
  _window.reset();
  Hangup();
}

AttrSet Connection::AnswerTo(const std::string& untrusted) {
  AttrSet request;
  AttrSet answer;
  std::string error;
  try {
    const bool is_read = request.Parse(untrusted.c_str());
    if (!is_read) error = request.Error();
    if (is_read && Dispatch(request, answer, error)) return answer;
  } catch (const std::bad_alloc&) {  // a client may ask for more than there is
    error = "out of memory";
  }
  return link::ToRefusal(error);
}

bool Connection::Dispatch(const AttrSet& untrusted, AttrSet& answer, std::string& error) {
  const char* text = untrusted.Get(link::kCommandKey);
  const std::string name = text == nullptr ? "" : text;
  const auto serve = [&]<typename Request>(Request request, auto& server) {
    typename Request::Answer reply;
    return Read(untrusted, request, error) && server.Execute(request, reply, error) &&
           Write(reply, answer, error);
  };
  if (name == link::Hello::kName) return serve(link::Hello(), *this);
  if (_window == nullptr) {
    error = "a command before hello";
    return false;
  }
  if (name == link::Create::kName) return serve(link::Create(), *this);
  if (name == link::DescribeMedia::kName) return serve(link::DescribeMedia(), *this);
  if (name == link::SetStatus::kName) return serve(link::SetStatus(), *this);
  if (name == link::Destroy::kName) return serve(link::Destroy(), *this);
  if (name == link::ListStreams::kName) return serve(link::ListStreams(), _side.streams);
  if (name == link::SetWord::kName) return serve(link::SetWord(), _side.streams);
  if (name == link::CountRequest::kName) return serve(link::CountRequest(), _side.streams);
  if (name == link::ProbeAudio::kName) return serve(link::ProbeAudio(), _side.audio);
  if (name == link::SetAudio::kName) return serve(link::SetAudio(), _side.audio);
  error = "no command \"" + name + "\"";
  return false;
}

bool Connection::Execute(const link::Hello& request, link::HelloAnswer& answer,
                         std::string& error) {
  if (request.version != link::kSessionVersion) {
    error = "this side speaks version " + std::to_string(link::kSessionVersion);
    return false;
  }
  if (_window != nullptr || _fds.size() != 1) {
    error = "hello takes one window, once";
    return false;
  }
  _linux_base = request.base.number;
  _window = link::SharedWindow::Attach(std::move(_fds[0]), error);
  answer.pid = getpid();
  return _window != nullptr;
}

// Two chains must not write into the same memory.
bool Connection::IsInUse(std::span<const std::byte> area, const Grants& grants) const {
  const auto overlaps = [area](std::span<const std::byte> other) {
    return area.data() < other.data() + other.size() && other.data() < area.data() + area.size();
  };
  for (const auto& [name, session] : grants.sessions) {
    if (overlaps(session.area)) return true;
  }
  return std::any_of(_applications.begin(), _applications.end(), [&](const auto& entry) {
    const std::vector<std::span<const std::byte>>& areas = entry.second.areas;
    return std::any_of(areas.begin(), areas.end(), overlaps);
  });
}

bool Connection::ReadGrants(const link::Create& request, Grants& grants, std::string& error) {
  for (const auto& [offset, size_bytes] : request.blocks) {
    if (_window->Area(offset, size_bytes).empty()) {
      error = "blocks: " + std::to_string(offset) + "=" + std::to_string(size_bytes) +
              " lies outside the window";
      return false;
    }
    grants.blocks[offset] = size_bytes;
  }
  if (_fds.size() != 2 * request.sessions.size()) {
    error = "sessions: " + std::to_string(request.sessions.size()) + " of them came with " +
            std::to_string(_fds.size()) + " descriptors, not with two each";
    return false;
  }
  std::size_t next_fd = 0;
  for (const auto& [name, place] : request.sessions) {
    Grants::Session session;
    if (place.offset % alignof(link::SessionHeader) == 0) {
      session.area = _window->Area(place.offset, place.size);
    }
    if (session.area.empty()) {
      error = "sessions: " + name + "={offset=" + std::to_string(place.offset) +
              ",size=" + std::to_string(place.size) + "} lies outside the window";
      return false;
    }
    if (IsInUse(session.area, grants)) {
      error = "sessions: " + name + " overlaps the area of another session";
      return false;
    }
    session.frame_doorbell = std::move(_fds[next_fd++]);
    session.slot_doorbell = std::move(_fds[next_fd++]);
    if (name.size() > kLongestName || !link::Doorbell::IsDoorbell(session.frame_doorbell.Get()) ||
        !link::Doorbell::IsDoorbell(session.slot_doorbell.Get())) {
      error = "sessions: a name longer than 255, or a descriptor that is no eventfd";
      return false;
    }
    grants.sessions[name] = std::move(session);
  }
  return true;
}

bool Connection::Execute(const link::Create& request, link::CreateAnswer& answer,
                         std::string& error) {
  Grants grants;
  if (!ReadGrants(request, grants, error)) return false;
  std::vector<std::span<const std::byte>> areas;
  for (const auto& [name, session] : grants.sessions) areas.emplace_back(session.area);
  const std::uint64_t handle = _side.streams.NewHandle();
  const auto report = [this, handle](link::Event::Kind kind, const std::string& text) {
    Report(handle, kind, text);
  };
  GrantedMemory granted(*_window, _linux_base, std::move(grants));
  auto application = Application::Create(request.layout, _side.elements, granted,
                                         {request.board, _side.audio.Microphone()}, report, error);
  if (application == nullptr) return false;
  if (request.status && !application->SetStatus(*request.status, error)) return false;
  answer.object_base.number = handle;
  answer.media = application->Description();
  auto listing = _side.streams.Add(handle, *application, _client);
  _applications.emplace(handle,
                        Listed{std::move(application), std::move(listing), std::move(areas)});
  return true;
}

Application* Connection::Find(link::Handle handle, std::string& error) const {
  const auto place = _applications.find(handle.number);
  if (place != _applications.end()) return place->second.application.get();
  error = "no application object_base=" + quill::base::HandleText(handle.number);
  return nullptr;
}

bool Connection::Execute(const link::DescribeMedia& request, link::MediaAnswer& answer,
                         std::string& error) {
  const Application* application = Find(request.object_base, error);
  if (application != nullptr) answer.media = application->Description();
  return application != nullptr;
}

bool Connection::Execute(const link::SetStatus& request, link::Done&, std::string& error) {
  Application* application = Find(request.object_base, error);
  return application != nullptr && application->SetStatus(request.status, error);
}

bool Connection::Execute(const link::Destroy& request, link::Done&, std::string& error) {
  return Find(request.object_base, error) != nullptr &&
         _applications.erase(request.object_base.number) == 1;
}

void Connection::Send(WireMessage::Kind kind, std::uint32_t number, const AttrSet& body) const {
  const auto sent = link::SendMessage(_socket.Get(), {kind, number, body.ToString(false)});
  // Goes on: a client that is gone is noticed by the next receive.
  if (sent != link::SendResult::kTooLong) return;
  const AttrSet refusal = link::ToRefusal("the answer is too long");
  link::SendMessage(_socket.Get(), {kind, number, refusal.ToString(false)});
}

// Chain thread.
void Connection::Report(std::uint64_t handle, link::Event::Kind kind,
                        const std::string& text) const {
  try {
    AttrSet body;
    std::string error;
    // Goes on: a text that cannot be written is left out.
    static_cast<void>(Write(link::Event{kind, {handle}, text}, body, error));
    Send(WireMessage::kEvent, 0, body);
  } catch (const std::bad_alloc&) {
    Hangup();  // so that the client learns that something is wrong
  }
}

}  // namespace tessel::rtos
