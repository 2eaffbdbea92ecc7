#include "Connection.h"

#include <new>

#include <sys/socket.h>
#include <unistd.h>

#include "Doorbell.h"
#include "quill/ostream_string.h"
#include "SessionLayout.h"

namespace tessel::rtos {
namespace {

using link::WireMessage;
using quill::base::HandleText;
using quill::base::ReadHandle;

constexpr std::size_t kLongestName = 255;  // of a session: lists of them have to fit into an answer

Board ReadBoard(const char* text, const AudioDevices& audio) {
  AttrSet set;
  Board board;
  board.microphone = audio.Find("Microphone");
  if (text == nullptr || !set.Parse(text)) return board;
  set.Get("sensor", board.sensor);
  set.Get("mic", board.mic);
  set.Get("loop", board.loop);
  set.Get("paced", board.paced);
  set.Get("slots", board.slots);
  return board;
}

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
    Fds fds;
    while (ReceiveMessage(_socket.Get(), message, fds)) {
      if (message.kind == WireMessage::kRequest) ServeOne(message, fds);
    }
  } catch (const std::bad_alloc&) {
    // Goes on: this client is lost, and what it used may be enough for the others.
  }
  Hangup();  // nobody is left to answer
  _applications.clear();
  _window.reset();  // frames of a client that is gone take memory
}

void Connection::ServeOne(const WireMessage& message, Fds& fds) {
  AttrSet request;
  AttrSet answer;
  std::string error;
  const bool is_read = request.Parse(message.text.c_str());
  if (!is_read) error = request.Error();
  if (!is_read || !HandleWhole(request, fds, answer, error)) {
    answer = AttrSet();
    // What an error quotes comes from the request, and need not be fit for an attribute set.
    if (!answer.Add("error", error)) answer.Add("error", "refused; the reason cannot be written");
  }
  Send(WireMessage::kAnswer, message.number, answer);
}

// Chain's thread.
void Connection::Report(std::uint64_t handle, const char* kind, const std::string& text) const {
  try {
    AttrSet event;
    event.Add("event", kind);
    event.Add("object_base", HandleText(handle));
    event.Add("text", text);
    Send(WireMessage::kEvent, 0, event);
  } catch (const std::bad_alloc&) {
    Hangup();  // so that the client learns that something is wrong
  }
}

void Connection::Send(WireMessage::Kind kind, std::uint32_t number, const AttrSet& body) const {
  const auto sent = link::SendMessage(_socket.Get(), {kind, number, body.ToString(false)});
  // Goes on: a Linux side that is gone is noticed by the next receive.
  if (sent != link::SendResult::kTooLong) return;
  link::SendMessage(_socket.Get(), {kind, number, "error=the answer is too long"});
}

// What a client asks for may be more than there is memory.
bool Connection::HandleWhole(const AttrSet& request, Fds& fds, AttrSet& answer,
                             std::string& error) {
  try {
    return Handle(request, fds, answer, error);
  } catch (const std::bad_alloc&) {
    error = "out of memory";
    return false;
  }
}

bool Connection::Handle(const AttrSet& request, Fds& fds, AttrSet& answer, std::string& error) {
  const char* name = request.Get("cmd");
  const std::string command = name == nullptr ? "" : name;
  if (command == "hello") return Hello(request, fds, answer, error);
  if (_window == nullptr) {
    error = "a command before hello";
    return false;
  }
  if (command == "tesselCreate") return Create(request, fds, answer, error);
  if (command == "tesselMedia") return Describe(request, answer, error);
  if (command == "tesselStatus") return SetStatus(request, error);
  if (command == "tesselDestroy") return Destroy(request, error);
  if (command == "tesselList") {
    answer = _side.directory.List(ReadHandle(request.Get("from")));
    return true;
  }
  if (command == "tesselSet") return SetWord(request, error);
  if (command == "tesselRequest") return CountRequest(request, error);
  if (command == "ProbeAudioDriver") return _side.audio.Probe(request, answer, error);
  if (command == "SetAudioDriver") return _side.audio.Set(request, error);
  error = "no command \"" + command + "\"";
  return false;
}

bool Connection::Hello(const AttrSet& request, Fds& fds, AttrSet& answer, std::string& error) {
  int version = 0;
  if (!request.Get("version", version) || version != link::kSessionVersion) {
    error = "this side speaks version " + std::to_string(link::kSessionVersion);
    return false;
  }
  const char* base = request.Get("base");
  if (_window != nullptr || fds.size() != 1 || base == nullptr) {
    error = "hello takes one window, once";
    return false;
  }
  _linux_base = ReadHandle(base);
  _window = link::SharedWindow::Attach(std::move(fds[0]), error);
  return _window != nullptr && answer.Add("pid", static_cast<int>(getpid()));
}

bool Connection::ReadGrants(const AttrSet& request, Fds& fds, Grants& grants,
                            std::string& error) const {
  AttrSet blocks;
  AttrSet sessions;
  const char* block_text = request.Get("blocks");
  const char* session_text = request.Get("sessions");
  if (block_text == nullptr || !blocks.Parse(block_text) || session_text == nullptr ||
      !sessions.Parse(session_text) || fds.size() != 2 * sessions.Pairs().size()) {
    error = "blocks= or sessions= cannot be read";
    return false;
  }
  for (const AttrSet::Pair& pair : blocks.Pairs()) {
    unsigned long long offset = 0;
    unsigned long long size_bytes = 0;
    if (!quill::base::ConvertToImpl(pair.key.c_str(), offset) ||
        !quill::base::ConvertToImpl(pair.value.c_str(), size_bytes) ||
        _window->Area(offset, size_bytes).empty()) {
      error = "blocks: " + pair.key + "=" + pair.value + " lies outside the window";
      return false;
    }
    grants.blocks[offset] = size_bytes;
  }
  std::size_t next_fd = 0;
  for (const AttrSet::Pair& pair : sessions.Pairs()) {
    AttrSet area;
    unsigned long long offset = 0;
    unsigned long long size_bytes = 0;
    Grants::Session session;
    if (area.Parse(pair.value.c_str()) && area.Get("offset", offset) &&
        area.Get("size", size_bytes) && offset % alignof(link::SessionHeader) == 0) {
      session.area = _window->Area(offset, size_bytes);
    }
    if (session.area.empty()) {
      error = "sessions: " + pair.key + "={" + pair.value + "} lies outside the window";
      return false;
    }
    session.frame_doorbell = std::move(fds[next_fd++]);
    session.slot_doorbell = std::move(fds[next_fd++]);
    if (pair.key.size() > kLongestName ||
        !link::Doorbell::IsDoorbell(session.frame_doorbell.Get()) ||
        !link::Doorbell::IsDoorbell(session.slot_doorbell.Get())) {
      error = "sessions: a name longer than 255, or a descriptor that is no eventfd";
      return false;
    }
    grants.sessions[pair.key] = std::move(session);
  }
  return true;
}

bool Connection::Create(const AttrSet& request, Fds& fds, AttrSet& answer, std::string& error) {
  Grants grants;
  if (!ReadGrants(request, fds, grants, error)) return false;
  const std::uint64_t handle = _side.directory.NewHandle();
  const auto report = [this, handle](const char* kind, const std::string& text) {
    Report(handle, kind, text);
  };
  auto application =
      Application::Create(request, _side.elements, *_window, _linux_base, std::move(grants),
                          ReadBoard(request.Get("board"), _side.audio), report, error);
  if (application == nullptr) return false;
  const char* wanted = request.Get("status");
  if (wanted != nullptr && !application->SetStatus(wanted, error)) return false;
  auto listing = _side.directory.Add(handle, *application, _client);
  _applications.emplace(handle, Listed{std::move(application), std::move(listing)});
  return answer.Add("object_base", HandleText(handle));
}

Application* Connection::Find(const AttrSet& request, std::uint64_t& handle,
                              std::string& error) const {
  const char* text = request.Get("object_base");
  handle = ReadHandle(text);
  const auto place = _applications.find(handle);
  if (place != _applications.end()) return place->second.application.get();
  error = "no application object_base=" + std::string(text == nullptr ? "" : text);
  return nullptr;
}

bool Connection::Describe(const AttrSet& request, AttrSet& answer, std::string& error) {
  std::uint64_t handle = 0;
  const Application* application = Find(request, handle, error);
  return application != nullptr && answer.Add("media", application->Description().ToString(false));
}

bool Connection::SetStatus(const AttrSet& request, std::string& error) {
  std::uint64_t handle = 0;
  Application* application = Find(request, handle, error);
  const char* status = request.Get("status");
  if (application == nullptr) return false;
  return application->SetStatus(status == nullptr ? "" : status, error);
}

bool Connection::Destroy(const AttrSet& request, std::string& error) {
  std::uint64_t handle = 0;
  if (Find(request, handle, error) == nullptr) return false;
  _applications.erase(handle);
  return true;
}

bool Connection::SetWord(const AttrSet& request, std::string& error) {
  int stream = 0;
  int value = 0;
  const char* word = request.Get("word");
  if (!request.Get("stream", stream) || word == nullptr || !request.Get("value", value)) {
    error = "tesselSet takes stream=, word= and value=";
    return false;
  }
  return _side.directory.SetWord(stream, word, value, error);
}

bool Connection::CountRequest(const AttrSet& request, std::string& error) {
  int stream = 0;
  const char* word = request.Get("word");
  if (!request.Get("stream", stream) || word == nullptr) {
    error = "tesselRequest takes stream= and word=";
    return false;
  }
  return _side.directory.CountRequest(stream, word, error);
}

}  // namespace tessel::rtos
