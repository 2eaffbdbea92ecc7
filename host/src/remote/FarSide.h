// The connection to the real-time side: its process, the command wire, and the applications that
// exist over there.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <sys/types.h>

#include "quill/AttrSet.h"
#include "Session.h"
#include "UniqueFd.h"
#include "Wire.h"

namespace quill::stream {

// Why a child after fork gets nothing from the real-time side.
inline constexpr char kForked[] = "the connection is the parent process's";

// One connection, alive until the other side dies; the next command then makes a new one. All that
// belongs to a connection dies with it, but for frames still held. Any thread.
class FarSide : public std::enable_shared_from_this<FarSide> {
 public:
  ~FarSide();

  // The connection in use, made if there is none or it is dead: to the socket that the options
  // name, else to a process started for it. Null with `error` set when that cannot be had.
  static std::shared_ptr<FarSide> Ensure(std::string& error);
  // The connection in use, dead or alive; null before the first.
  static std::shared_ptr<FarSide> Current();

  // Runs one command over there and adds its outputs to `args`, whose "cmd" names it and whose
  // "timeout", in ns, bounds the wait. False with `error` set.
  bool Run(base::AttrSet& args, std::string& error);

  bool IsAlive() const;
  // Whether the connection of that number was in use and is not any more; 0 is none. Any thread.
  static bool IsLost(std::uint64_t number);
  pid_t Process() const { return _process; }
  std::uint64_t Number() const { return _number; }  // counts connections
  // Whether the real-time side is somewhere else than in a process of ours.
  static bool IsElsewhere();

  // The session `name` of the application `handle`, or null.
  std::shared_ptr<Session> FindSession(std::uint64_t handle, const std::string& name) const;
  // The blocks that the application `handle` was told of; none when it is not known.
  std::vector<std::weak_ptr<const Window::Block>> BlocksOf(std::uint64_t handle) const;

 private:
  using Answer = std::function<void(const base::AttrSet&)>;
  struct Pending {
    bool is_done = false;
    base::AttrSet answer;
    // Runs on the wire thread when the answer comes, even too late for whoever asked.
    Answer on_answer;
  };
  // What an application over there may touch stays handed out until it is gone.
  struct Application {
    std::vector<std::shared_ptr<Session>> sessions;
    std::vector<std::shared_ptr<const Window::Block>> blocks;
  };
  using Applications = std::map<std::uint64_t, Application>;

  FarSide();
  bool Start(std::string& error);
  bool Connect(const std::string& path, std::string& error);
  bool Spawn(std::string& error);
  bool Introduce(std::string& error);
  void EndChild() const;
  bool Request(const base::AttrSet& body, const std::vector<int>& fds,
               std::chrono::nanoseconds timeout, Answer on_answer, base::AttrSet& answer,
               std::string& error);
  bool Create(base::AttrSet& body, std::chrono::nanoseconds timeout, base::AttrSet& answer,
              std::string& error);
  bool Destroy(const base::AttrSet& body, std::chrono::nanoseconds timeout, base::AttrSet& answer,
               std::string& error);
  void DestroyLater(std::uint64_t handle);
  Answer Forget(std::uint64_t handle);
  // The request's number, or 0 with `error` set.
  std::uint32_t Send(const base::AttrSet& body, const std::vector<int>& fds,
                     const std::shared_ptr<Pending>& pending, std::string& error);
  void Listen();
  void TakeAnswer(std::uint32_t number, const std::string& text);
  void TakeEvent(const std::string& text);
  void Lose();

  const std::uint64_t _number;
  tessel::UniqueFd _socket;  // constant after Start
  pid_t _child = 0;          // constant after Start; 0 when it was not started here
  pid_t _process = 0;        // constant after Start

  mutable std::mutex _mutex;
  std::condition_variable _answered;
  bool _is_alive = false;                                      // guarded by _mutex
  std::uint32_t _last_number = 0;                              // guarded by _mutex
  std::map<std::uint32_t, std::shared_ptr<Pending>> _pending;  // guarded by _mutex
  Applications _applications;                                  // guarded by _mutex; by handle
};

}  // namespace quill::stream
