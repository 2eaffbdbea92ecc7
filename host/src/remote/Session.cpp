#include "Session.h"

#include <algorithm>

#include "ForkedChild.h"
#include "quill/Debug.h"
#include "quill/Host.h"

namespace quill::stream {
namespace {

using tessel::link::Doorbell;
using tessel::link::FrameDescriptor;
using tessel::link::SessionConsumer;

// Never destroyed: a frame may be dropped by the last static destructor.
struct SessionTable {
  std::mutex mutex;
  std::vector<std::weak_ptr<Session>> sessions;  // guarded by mutex
};

SessionTable& Table() {
  static auto* table = new SessionTable;
  return *table;
}

}  // namespace

void SessionPacket::Show(const FrameDescriptor& frame, const std::uint8_t* data,
                         std::shared_ptr<Session> session) {
  StartHold();
  _data = data;
  _size_bytes = frame.size;
  _sequence = frame.sequence;
  _time_ns = frame.time_ns;
  _is_key = frame.is_key != 0;
  _slot = frame.slot;
  _session = std::move(session);
}

void SessionPacket::LastReleased() {
  // The session may end with this packet, and with it the packet itself.
  const std::shared_ptr<Session> session = std::move(_session);
  if (!IsForkedChild()) session->_consumer->ReleaseSlot(_slot);
}

std::shared_ptr<Session> Session::Create(const std::string& name) {
  Window* window = Window::Globle();
  if (window == nullptr) return nullptr;
  auto memory = std::make_shared<SessionMemory>();
  memory->area = window->Allocate(host::GetOptions().session_bytes);
  memory->frame_doorbell = Doorbell::Create();
  memory->slot_doorbell = Doorbell::Create();
  auto consumer =
      SessionConsumer::Create(memory->area.Bytes(), Doorbell(memory->frame_doorbell.Duplicate()),
                              Doorbell(memory->slot_doorbell.Duplicate()));
  if (Failed(consumer == nullptr, "!consumer", "no memory or no eventfd for session ", name)) {
    return nullptr;
  }
  if (!host::GetOptions().paced) consumer->SpinLonger();
  std::shared_ptr<Session> session(new Session(name, std::move(memory), std::move(consumer)));
  SessionTable& table = Table();
  const std::lock_guard lock(table.mutex);
  std::erase_if(table.sessions, [](const auto& entry) { return entry.expired(); });
  table.sessions.push_back(session);
  return session;
}

Session::Session(std::string name, std::shared_ptr<SessionMemory> memory,
                 std::unique_ptr<SessionConsumer> consumer)
    : _name(std::move(name)), _memory(std::move(memory)), _consumer(std::move(consumer)) {}

Session::~Session() = default;

std::vector<std::shared_ptr<Session>> Session::All() {
  SessionTable& table = Table();
  std::vector<std::shared_ptr<Session>> sessions;
  {
    const std::lock_guard lock(table.mutex);
    for (const auto& entry : table.sessions) {
      if (auto session = entry.lock()) sessions.push_back(std::move(session));
    }
  }
  std::stable_partition(sessions.begin(), sessions.end(),
                        [](const auto& session) { return !session->HasEnded(); });
  return sessions;
}

Packet* Session::TakeNext() {
  FrameDescriptor frame;
  if (!_consumer->Next(frame)) return nullptr;
  SessionPacket& packet = _packets[frame.slot];
  packet._count = ++_taken;
  packet.Show(frame, reinterpret_cast<const std::uint8_t*>(_consumer->Base()) + frame.offset,
              shared_from_this());
  return &packet;
}

Packet* Session::Pull(bool blocking) {
  std::unique_lock lock(_pull_mutex, std::defer_lock);
  if (blocking) {
    lock.lock();
  } else if (!lock.try_lock()) {
    return nullptr;  // somebody waits for a frame already
  }
  for (;;) {
    const Mode mode = _mode.load(std::memory_order_acquire);
    if (mode == Mode::kHalted || IsForkedChild()) return nullptr;
    if (mode == Mode::kPaused) {
      if (!blocking) return nullptr;
      _mode.wait(Mode::kPaused);
      continue;
    }
    // Read before the ring: what was published before the end is then seen below.
    const bool is_last_look = HasEnded() || !blocking;
    if (Packet* packet = TakeNext()) return packet;
    if (is_last_look) return nullptr;
    _consumer->Wait();
  }
}

void Session::Play() {
  const std::lock_guard lock(_pull_mutex);
  if (IsForkedChild()) return;
  while (Packet* stale = TakeNext()) stale->Release();
  if (!HasEnded()) _consumer->Resume();
  SetMode(Mode::kPlaying);
}

void Session::Pause() {
  SetMode(Mode::kPaused);
  if (HasEnded()) Unpause();
  _consumer->Interrupt();  // a reader that sleeps there wakes and waits for the mode
}

void Session::Resume() {
  if (!HasEnded()) _consumer->Resume();
  SetMode(Mode::kPlaying);
}

void Session::Halt() {
  SetMode(Mode::kHalted);
  _consumer->Interrupt();
}

void Session::End() {
  _ended.store(true, std::memory_order_release);
  Unpause();
  _consumer->Interrupt();
}

// An ended session cannot stay paused: End() and Pause() each call this after their own store.
void Session::Unpause() {
  Mode paused = Mode::kPaused;
  if (_mode.compare_exchange_strong(paused, Mode::kPlaying)) _mode.notify_all();
}

void Session::SetMode(Mode mode) {
  _mode.store(mode, std::memory_order_release);
  _mode.notify_all();
}

void Session::SetListener(Listener listener) {
  const std::lock_guard lock(_listener_mutex);
  _listener = std::move(listener);
}

void Session::Tell(const std::string& text) {
  std::function<void()> work;
  {
    const std::lock_guard lock(_listener_mutex);
    if (_listener) work = _listener(text);
  }
  if (work) work();
}

}  // namespace quill::stream
