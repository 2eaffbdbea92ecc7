// Commands to the real-time side and their answers: the host's end of the command wire.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "quill/AttrSet.h"
#include "UniqueFd.h"
#include "Wire.h"

namespace quill::stream {

// What a request fails with when the wire ends, and what each stream is told then.
inline constexpr char kLoss[] = "the real-time side is gone";

// Any thread.
class CommandChannel {
 public:
  // Gets what the real-time side sends unasked. Wire thread.
  class Handler {
   public:
    virtual void OnEvent(const std::string& text) = 0;
    // The wire has ended; the last call. It has to call Close().
    virtual void OnDisconnect() = 0;

   protected:
    ~Handler() = default;
  };

  // Runs with the answer, before the thread that waits for it wakes, and also when the answer comes
  // too late for that thread. Wire thread, in the order of the answers.
  using OnAnswer = std::function<void(const base::AttrSet& answer)>;

  explicit CommandChannel(tessel::UniqueFd socket);
  ~CommandChannel();

  // Starts the wire thread, which receives and holds `handler` until the wire ends. False with
  // `error` set. REQUIRES: `handler` owns this channel.
  bool Start(std::shared_ptr<Handler> handler, std::string& error);

  // Sends a request and waits for its answer. False with `error` set when it is not answered within
  // `timeout`, is refused ("error" is then in `answer`), or the wire ends. `fds` are lent.
  bool Request(const base::AttrSet& body, const std::vector<int>& fds,
               std::chrono::nanoseconds timeout, OnAnswer on_answer, base::AttrSet& answer,
               std::string& error);
  // Sends a request and does not wait.
  void Post(const base::AttrSet& body, OnAnswer on_answer);

  // Until the wire has ended.
  bool IsAlive() const { return _is_alive.load(std::memory_order_acquire); }
  // Ends the wire; the wire thread then notices.
  void Hangup() const;
  // Fails the requests under way. Wire thread.
  void Close();

 private:
  struct Pending {
    bool is_done = false;
    base::AttrSet answer;
    OnAnswer on_answer;  // constant
  };

  // The request's number, or 0 with `error` set.
  std::uint32_t Send(const base::AttrSet& body, const std::vector<int>& fds,
                     const std::shared_ptr<Pending>& pending, std::string& error);
  void Receive(Handler& handler);
  void TakeAnswer(std::uint32_t number, const std::string& text);

  const tessel::UniqueFd _socket;

  std::mutex _mutex;
  std::condition_variable _answered;
  std::atomic<bool> _is_alive{true};  // written under _mutex
  std::uint32_t _last_number = 0;     // guarded by _mutex
  // Guarded by _mutex, as are the members of each; by the request's number.
  std::map<std::uint32_t, std::shared_ptr<Pending>> _pending;
};

}  // namespace quill::stream
