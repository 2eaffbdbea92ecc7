#include "FarSide.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "DeviceSettings.h"
#include "ForkedChild.h"
#include "MessageThread.h"
#include "Places.h"
#include "quill/Debug.h"
#include "quill/Host.h"
#include "Threads.h"
#include "Timeouts.h"

extern char** environ;

namespace quill::stream {
namespace {

using base::AttrSet;
using std::chrono::nanoseconds;
using tessel::UniqueFd;
using tessel::link::SendResult;
using tessel::link::WireMessage;

constexpr int kTheirSocket = 3;  // where a program started here finds its end of the wire
constexpr char kLoss[] = "the real-time side is gone";

std::atomic<std::uint64_t> g_last_number{0};
std::atomic<std::uint64_t> g_live_number{0};  // of the connection that is alive; 0: none is
std::mutex g_current_mutex;
std::shared_ptr<FarSide>& CurrentSlot() {
  static auto* slot = new std::shared_ptr<FarSide>;  // never destroyed: no waiting at exit
  return *slot;
}

// Names of all sessions that a description's sinks want, wherever they stand in it.
void FindSessions(const char* text, std::vector<std::string>& names) {
  AttrSet set;
  if (!set.Parse(text)) return;
  const char* layout = set.Get("layout");
  if (layout == nullptr) return;
  FindSessions(layout, names);  // a description inside the description
  std::vector<base::LayoutElement> elements;
  std::string error;
  if (!base::ParseLayout(layout, elements, error)) return;
  for (const base::LayoutElement& element : elements) {
    const bool is_sink = element.class_name == "ShmSink" || element.class_name == "FifoSink";
    const char* name = element.params.Get("session_name");
    if (is_sink && name != nullptr) names.emplace_back(name);
  }
}

AttrSet DescribeArea(std::uint64_t offset, std::size_t size_bytes) {
  AttrSet area;
  area.Add("offset", offset);
  area.Add("size", size_bytes);
  return area;
}

// False, with `error`, when the name of an input cannot be written as text.
bool DescribeBoard(const host::Options& options, AttrSet& board, std::string& error) {
  if (!board.Add("sensor", AbsoluteInput(options.sensor))) {
    error = "sensor \"" + options.sensor + "\" has a name with unbalanced braces";
    return false;
  }
  if (!board.Add("mic", AbsoluteInput(options.mic))) {
    error = "microphone \"" + options.mic + "\" has a name with unbalanced braces";
    return false;
  }
  board.Add("loop", options.loop);
  board.Add("paced", options.paced);
  return board.Add("slots", options.session_slots);
}

}  // namespace

bool FarSide::IsLost(std::uint64_t number) {
  return number != 0 && number != g_live_number.load(std::memory_order_acquire);
}

std::shared_ptr<FarSide> FarSide::Current() {
  const std::lock_guard lock(g_current_mutex);
  return CurrentSlot();
}

std::shared_ptr<FarSide> FarSide::Ensure(std::string& error) {
  if (IsForkedChild()) {
    error = kForked;
    return nullptr;
  }
  const std::lock_guard lock(g_current_mutex);
  std::shared_ptr<FarSide>& current = CurrentSlot();
  if (current != nullptr && current->IsAlive()) return current;
  std::shared_ptr<FarSide> fresh(new FarSide);
  if (!fresh->Start(error)) return nullptr;
  current = fresh;
  // Whoever else wants the connection waits meanwhile: all of it takes no longer than one command.
  const auto deadline = std::chrono::steady_clock::now() + CommandTimeout();
  DeviceSettings::Globle().Restore(fresh->Number(), [&](AttrSet& args) {
    const nanoseconds left = deadline - std::chrono::steady_clock::now();
    args.Add("timeout", static_cast<long long>(left.count()));
    std::string refusal;
    return left.count() > 0 && fresh->Run(args, refusal);
  });
  return current;
}

FarSide::FarSide() : _number(++g_last_number) {}

FarSide::~FarSide() { KeepInForkedChild(_socket.Get()); }

bool FarSide::IsElsewhere() { return !host::FarSideSocket().empty(); }

bool FarSide::Start(std::string& error) {
  if (Window::Globle() == nullptr) {
    error = "there is no shared window";
    return false;
  }
  const std::string path = host::FarSideSocket();
  if (path.empty() ? !Spawn(error) : !Connect(path, error)) return false;
  CloseInForkedChild(_socket.Get());
  _is_alive = true;
  g_live_number.store(_number, std::memory_order_release);
  std::thread listener =
      StartThread("tessel-wire", [self = shared_from_this()] { self->Listen(); });
  if (!listener.joinable()) {
    EndChild();
    error = "no thread for the real-time side";
    return false;
  }
  listener.detach();
  if (Introduce(error)) return true;
  shutdown(_socket.Get(), SHUT_RDWR);
  return false;
}

bool FarSide::Introduce(std::string& error) {
  const tessel::link::SharedWindow& memory = Window::Globle()->Memory();
  AttrSet hello;
  hello.Add("cmd", "hello");
  hello.Add("version", tessel::link::kSessionVersion);
  hello.Add("base", base::ToString<const void*>(memory.Base()));
  AttrSet answer;
  const nanoseconds timeout =
      _child == 0 ? CommandTimeout() : std::min(host::GetOptions().start_timeout, kLongestTimeout);
  if (!Request(hello, {memory.Fd()}, timeout, nullptr, answer, error)) return false;
  int process = 0;
  if (_child == 0 && answer.Get("pid", process)) _process = process;
  return true;
}

bool FarSide::Connect(const std::string& path, std::string& error) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  error = "the real-time side at " + path + ": ";
  if (path.size() >= sizeof address.sun_path) {
    error += "the path is longer than " + std::to_string(sizeof address.sun_path - 1);
    return false;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size());
  _socket = UniqueFd::AboveStandard(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (!_socket.IsOpen() || connect(_socket.Get(), generic, sizeof address) != 0) {
    error += std::strerror(errno);
    return false;
  }
  tessel::link::LimitSends(_socket.Get());
  return true;
}

bool FarSide::Spawn(std::string& error) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    error = std::string("no socket for the real-time side: ") + std::strerror(errno);
    return false;
  }
  _socket = UniqueFd::AboveStandard(ends[0]);
  // Above the descriptors that the new program gets its own under.
  const UniqueFd their_end(fcntl(ends[1], F_DUPFD_CLOEXEC, kTheirSocket + 1));
  const int failed = errno;
  close(ends[1]);
  if (!_socket.IsOpen() || !their_end.IsOpen()) {
    error = std::string("no socket for the real-time side: ") + std::strerror(failed);
    return false;
  }
  tessel::link::LimitSends(_socket.Get());
  const host::Options options = host::GetOptions();
  const std::string program =
      options.far_side_program.empty() ? FindProgram("tessel-rtos") : options.far_side_program;
  if (program.empty()) {
    error = "tessel-rtos stands neither beside " + LibraryFolder() + " nor where it is installed";
    return false;
  }
  std::vector<std::string> words = {program, "--connection=" + std::to_string(kTheirSocket)};
  if (!options.board.empty()) words.push_back("--board=" + options.board);
  words.insert(words.end(), options.far_side_arguments.begin(), options.far_side_arguments.end());
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  // The client's input and output are its own: a pipe must end when the client does.
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDWR, 0);
  posix_spawn_file_actions_adddup2(&files, 0, 1);
  posix_spawn_file_actions_adddup2(&files, their_end.Get(), kTheirSocket);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  // A process group of its own: Ctrl-C is for the client, which then ends the real-time side
  // itself.
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  const int failure =
      posix_spawn(&_child, program.c_str(), &files, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  if (failure != 0) {
    _child = 0;
    error = "cannot start " + program + ": " + std::strerror(failure);
    return false;
  }
  _process = _child;
  return true;
}

void FarSide::EndChild() const {
  if (_child == 0) return;
  kill(_child, SIGKILL);
  waitpid(_child, nullptr, 0);  // no signal reaches this thread
}

bool FarSide::IsAlive() const {
  const std::lock_guard lock(_mutex);
  return _is_alive;
}

std::shared_ptr<Session> FarSide::FindSession(std::uint64_t handle, const std::string& name) const {
  const std::lock_guard lock(_mutex);
  const auto place = _applications.find(handle);
  if (place == _applications.end()) return nullptr;
  for (const auto& session : place->second.sessions) {
    if (session->Name() == name) return session;
  }
  return nullptr;
}

std::vector<std::weak_ptr<const Window::Block>> FarSide::BlocksOf(std::uint64_t handle) const {
  const std::lock_guard lock(_mutex);
  const auto place = _applications.find(handle);
  if (place == _applications.end()) return {};
  return {place->second.blocks.begin(), place->second.blocks.end()};
}

bool FarSide::Run(AttrSet& args, std::string& error) {
  const char* command = args.Get("cmd");
  if (command == nullptr) {
    error = "no cmd=";
    return false;
  }
  long long timeout_ns = CommandTimeout().count();
  args.Get("timeout", timeout_ns);
  const nanoseconds timeout = std::min(nanoseconds(timeout_ns), kLongestTimeout);
  AttrSet body = args;
  body.Remove("timeout");
  AttrSet answer;
  bool done = false;
  if (std::strcmp(command, "tesselCreate") == 0) {
    done = Create(body, timeout, answer, error);
  } else if (std::strcmp(command, "tesselDestroy") == 0) {
    done = Destroy(body, timeout, answer, error);
  } else {
    done = Request(body, {}, timeout, nullptr, answer, error);
  }
  for (const AttrSet::Pair& pair : answer.Pairs()) args.Add(pair.key.c_str(), pair.value);
  return done;
}

bool FarSide::Create(AttrSet& body, nanoseconds timeout, AttrSet& answer, std::string& error) {
  AttrSet board;
  if (!DescribeBoard(host::GetOptions(), board, error)) return false;
  body.Add("board", board.ToString(false));
  std::vector<std::string> names;
  FindSessions(body.ToString(false).c_str(), names);
  Application application;
  std::vector<int> fds;
  AttrSet areas;
  for (const std::string& name : names) {
    auto session = Session::Create(name);
    if (session == nullptr) {
      error = "no room for session " + name;
      return false;
    }
    const SessionMemory& memory = *session->Memory();
    const AttrSet area = DescribeArea(memory.area.Offset(), memory.area.Bytes().size());
    areas.Add(name.c_str(), area.ToString(false));
    fds.push_back(memory.frame_doorbell.Fd());
    fds.push_back(memory.slot_doorbell.Fd());
    application.sessions.push_back(std::move(session));
  }
  AttrSet blocks;
  if (const Window* window = Window::Globle()) {
    application.blocks = window->BlocksNamedIn(body.ToString(false));
    for (const auto& block : application.blocks) {
      blocks.Add(std::to_string(block->area.Offset()).c_str(), block->asked_bytes);
    }
  }
  body.Add("sessions", areas.ToString(false));
  body.Add("blocks", blocks.ToString(false));

  // On the wire thread, in the order of answers: no event of the application can come before it is
  // known here. One that comes into being after its creator gave up is ended at once.
  struct Outcome {
    bool is_wanted = true;
    std::uint64_t handle = 0;
  };
  auto outcome = std::make_shared<Outcome>();  // guarded by _mutex
  const Answer adopt = [this, application, outcome](const AttrSet& created) {
    const std::uint64_t handle = base::ReadHandle(created.Get("object_base"));
    if (handle == 0) return;
    {
      const std::lock_guard lock(_mutex);
      _applications[handle] = application;
      outcome->handle = handle;
      if (outcome->is_wanted) return;
    }
    DestroyLater(handle);
  };
  if (Request(body, fds, timeout, adopt, answer, error)) return true;
  {
    const std::lock_guard lock(_mutex);
    outcome->is_wanted = false;
    if (outcome->handle == 0) return false;
  }
  DestroyLater(outcome->handle);
  return false;
}

// Until the answer to "tesselDestroy" comes the other side may write into the sessions' memory, so
// it stays taken.
FarSide::Answer FarSide::Forget(std::uint64_t handle) {
  return [this, handle](const AttrSet&) {
    Application gone;  // destroyed after the lock
    const std::lock_guard lock(_mutex);
    const auto place = _applications.find(handle);
    if (place == _applications.end()) return;
    gone = std::move(place->second);
    _applications.erase(place);
  };
}

bool FarSide::Destroy(const AttrSet& body, nanoseconds timeout, AttrSet& answer,
                      std::string& error) {
  const std::uint64_t handle = base::ReadHandle(body.Get("object_base"));
  if (handle == 0) {
    error = "no object_base=";
    return false;
  }
  return Request(body, {}, timeout, Forget(handle), answer, error);
}

void FarSide::DestroyLater(std::uint64_t handle) {
  AttrSet body;
  body.Add("cmd", "tesselDestroy");
  body.Add("object_base", base::HandleText(handle));
  auto pending = std::make_shared<Pending>();
  pending->on_answer = Forget(handle);
  std::string error;
  Send(body, {}, pending, error);
}

std::uint32_t FarSide::Send(const AttrSet& body, const std::vector<int>& fds,
                            const std::shared_ptr<Pending>& pending, std::string& error) {
  std::uint32_t number = 0;
  {
    const std::lock_guard lock(_mutex);
    if (!_is_alive) {
      error = kLoss;
      return 0;
    }
    number = ++_last_number;
    _pending[number] = pending;
  }
  const auto sent = tessel::link::SendMessage(
      _socket.Get(), {WireMessage::kRequest, number, body.ToString(false)}, fds);
  if (sent == SendResult::kSent) return number;
  const std::lock_guard lock(_mutex);
  _pending.erase(number);
  error = sent == SendResult::kGone
              ? kLoss
              : std::string(body.Get("cmd")) + (sent == SendResult::kTooLong
                                                    ? ": the description is too long"
                                                    : ": the real-time side takes no commands");
  return 0;
}

bool FarSide::Request(const AttrSet& body, const std::vector<int>& fds, nanoseconds timeout,
                      Answer on_answer, AttrSet& answer, std::string& error) {
  auto pending = std::make_shared<Pending>();
  const bool wants_late_answer = static_cast<bool>(on_answer);
  pending->on_answer = std::move(on_answer);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const std::uint32_t number = Send(body, fds, pending, error);
  if (number == 0) return false;
  std::unique_lock lock(_mutex);
  if (!_answered.wait_until(lock, deadline, [&] { return pending->is_done || !_is_alive; })) {
    if (!wants_late_answer) _pending.erase(number);
    error = std::string(body.Get("cmd")) + ": no answer within " +
            std::to_string(timeout / std::chrono::milliseconds(1)) + " ms";
    return false;
  }
  if (!pending->is_done) {
    error = kLoss;
    return false;
  }
  answer = pending->answer;
  const char* refusal = answer.Get("error");
  if (refusal == nullptr) return true;
  error = refusal;
  return false;
}

void FarSide::Listen() {
  WireMessage message;
  std::vector<UniqueFd> fds;
  while (ReceiveMessage(_socket.Get(), message, fds)) {
    if (message.kind == WireMessage::kAnswer) {
      TakeAnswer(message.number, message.text);
    } else if (message.kind == WireMessage::kEvent) {
      TakeEvent(message.text);
    }
  }
  Lose();
}

void FarSide::TakeAnswer(std::uint32_t number, const std::string& text) {
  std::shared_ptr<Pending> pending;
  {
    const std::lock_guard lock(_mutex);
    const auto place = _pending.find(number);
    if (place == _pending.end()) return;  // nobody waits any more
    pending = std::move(place->second);
    _pending.erase(place);
  }
  AttrSet answer;
  if (!answer.Parse(text.c_str())) answer.Add("error", "an answer that cannot be read");
  if (pending->on_answer) pending->on_answer(answer);
  const std::lock_guard lock(_mutex);
  pending->answer = std::move(answer);
  pending->is_done = true;
  _answered.notify_all();
}

void FarSide::TakeEvent(const std::string& text) {
  AttrSet event;
  const char* kind = event.Parse(text.c_str()) ? event.Get("event") : nullptr;
  const std::uint64_t handle = base::ReadHandle(event.Get("object_base"));
  if (kind == nullptr || handle == 0) return;
  std::vector<std::shared_ptr<Session>> sessions;
  {
    const std::lock_guard lock(_mutex);
    const auto place = _applications.find(handle);
    if (place == _applications.end()) return;  // gone meanwhile
    sessions = place->second.sessions;
  }
  const std::string words = event.Get("text") == nullptr ? kind : event.Get("text");
  for (const auto& session : sessions) {
    if (std::strcmp(kind, "end") == 0 || std::strcmp(kind, "failed") == 0) session->End();
    PostMessage([session, words] { session->Tell(words); });
  }
}

void FarSide::Lose() {
  Applications applications;
  std::map<std::uint32_t, std::shared_ptr<Pending>> pending;  // its memory goes with it
  // Before anybody is woken, who then finds the status of the stream lost.
  std::uint64_t live = _number;
  g_live_number.compare_exchange_strong(live, 0);
  {
    const std::lock_guard lock(_mutex);
    _is_alive = false;
    applications.swap(_applications);
    pending.swap(_pending);
    _answered.notify_all();
  }
  for (const auto& [handle, application] : applications) {
    for (const auto& block : application.blocks) {
      // What encoded is gone, and cannot say so itself.
      if (VbrcBlock* vbrc = block->Vbrc()) vbrc->bitrate.store(0, std::memory_order_relaxed);
    }
    for (const auto& session : application.sessions) {
      session->End();
      PostMessage([session] { session->Tell(kLoss); });
    }
  }
  // It has closed its socket, so it is ending; if it is only misbehaving, it ends now. A number
  // that is no child any more may be somebody else's by now.
  if (_child != 0 && waitpid(_child, nullptr, WNOHANG) == 0) EndChild();
}

}  // namespace quill::stream
