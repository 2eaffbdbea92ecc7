// The Linux side of one stream of frames: the ring's consumer, the packets made of it, and who is
// told when the stream ends.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "quill/Packet.h"
#include "SessionConsumer.h"
#include "Window.h"

namespace quill::stream {

class Session;

// Memory and bells of a session. The real-time side may write there until it has let go or died,
// and frames lie there until their holders let go: whoever may still touch it holds this.
struct SessionMemory {
  WindowArea area;
  tessel::link::Doorbell frame_doorbell;  // the real-time side rings: a frame is there
  tessel::link::Doorbell slot_doorbell;   // Linux rings: a slot is free
};

// A frame in place. There is one for each slot, so delivering allocates nothing.
class SessionPacket : public Packet {
 public:
  SessionPacket() = default;
  // Which one of its session it is, from 1; the count wraps.
  std::uint32_t Count() const { return _count; }

 protected:
  void LastReleased() override;

 private:
  friend class Session;
  void Show(const tessel::link::FrameDescriptor& frame, const std::uint8_t* data,
            std::shared_ptr<Session> session);

  std::uint16_t _slot = 0;
  std::uint32_t _count = 0;
  std::shared_ptr<Session> _session;  // set while held: a frame outlives its stream's closing
};

// Any thread, except where said otherwise.
class Session : public std::enable_shared_from_this<Session> {
 public:
  // Null, and logged, when the window or the system has no room.
  static std::shared_ptr<Session> Create(const std::string& name);
  ~Session();

  const std::string& Name() const { return _name; }
  const std::shared_ptr<SessionMemory>& Memory() const { return _memory; }

  // The next packet, held for the caller; null when none is there, the stream is stopped, or (with
  // `blocking`) when none will come any more. While paused none comes. Callers that block queue up
  // behind one another.
  Packet* Pull(bool blocking);

  // Lets Pull() wait again; frames that were left over from before are given back.
  void Play();
  // Holds delivery back, and lets it go on.
  void Pause();
  void Resume();
  // Ends every Pull() at once, until Play().
  void Halt();
  // No frame will follow those in the ring: they are pulled, then Pull() returns null for good.
  void End();
  bool HasEnded() const { return _ended.load(std::memory_order_acquire); }
  bool IsHalted() const { return _mode.load(std::memory_order_acquire) == Mode::kHalted; }

  // Texts from the real-time side about this stream, and its loss. `listener` runs on the message
  // thread and returns the work to be done there with the text; empty removes it. When this
  // returns, the former listener does not run any more, but the work that it returned may.
  using Listener = std::function<std::function<void()>(const std::string& text)>;
  void SetListener(Listener listener);
  void Tell(const std::string& text);  // message thread

  tessel::link::SessionCounters Counters() const { return _consumer->Counters(); }
  // All sessions whose memory is in use, open ones first.
  static std::vector<std::shared_ptr<Session>> All();

 private:
  friend class SessionPacket;
  Session(std::string name, std::shared_ptr<SessionMemory> memory,
          std::unique_ptr<tessel::link::SessionConsumer> consumer);
  enum class Mode { kHalted, kPlaying, kPaused };
  Packet* TakeNext();
  void SetMode(Mode mode);
  void Unpause();

  const std::string _name;
  const std::shared_ptr<SessionMemory> _memory;
  const std::unique_ptr<tessel::link::SessionConsumer> _consumer;
  std::array<SessionPacket, tessel::link::kMostSlots> _packets;
  std::atomic<Mode> _mode{Mode::kHalted};
  std::atomic<bool> _ended{false};

  std::mutex _pull_mutex;    // one reader of the ring at a time
  std::uint32_t _taken = 0;  // guarded by _pull_mutex; packets taken out of the ring

  std::mutex _listener_mutex;
  Listener _listener;  // guarded by _listener_mutex
};

}  // namespace quill::stream
