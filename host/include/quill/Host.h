// A client's way in: load a plug-in, see what it offers, create an object by name.
//
//   quill::host::LoadPlugin();
//   auto camera = quill::host::Create<IH264Source>("ApiH264Source-dualos-cbrc-pull");
//   if (!camera || !camera->Open() || !camera->Start()) return 1;
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "quill/IClass.h"

namespace quill::host {

// How the real-time side is started, and which inputs its board has.
struct Options {
  // Program that plays the real-time side; empty: the one beside this library, else the installed
  // one. Read when it is started.
  std::string rtos_program;
  std::vector<std::string> rtos_arguments;  // appended to the command line
  // Unix socket of a running real-time side that serves several clients; none is started then.
  // Empty: the environment variable TESSEL_RTOS_SOCKET, if set. Read when a connection is made.
  std::string rtos_socket;

  // File that describes the board's audio devices (doc/audio.md); empty: the default ones. Read
  // when a real-time side is started.
  std::string board;

  // Board inputs; read whenever a chain is created on the real-time side.
  std::string sensor = "test";  // "test", "/dev/video*", or a media file
  // "test": a tone with a beep each second; "tone" or "tone:HZ" without beeps; "alsa" or
  // "alsa:DEVICE"; or a media file.
  std::string mic = "test";
  bool loop = true;   // a media file is repeated
  bool paced = true;  // in real time; false: as fast as the client takes frames, without drops

  // Memory is allocated when it is first touched. `window_bytes` is read once, at first use.
  std::size_t window_bytes = std::size_t{4} << 30;
  std::size_t session_bytes = std::size_t{256} << 20;  // one stream's room for frames in flight
  int session_slots = 24;                              // most frames in flight of one stream

  // Time-out of commands without one of their own.
  std::chrono::nanoseconds command_timeout = std::chrono::seconds(1);
  // How long a real-time side that is started here may take to answer its first message. Loading
  // its program may take longer than a command. If it never answers, the first Open() fails after
  // this time.
  std::chrono::nanoseconds start_timeout = std::chrono::seconds(10);
};

// Any thread. Streams that are open keep the options they were opened with.
QUILL_PUBLIC void SetOptions(const Options& options);
QUILL_PUBLIC Options GetOptions();

// Loads a plug-in and lets it register its classes; loading it again changes nothing. Null: the
// streaming plug-in beside this library, else the installed one. False when it cannot be loaded or
// announces nothing itself; the reason goes to `error`, if given, and to the log.
QUILL_PUBLIC bool LoadPlugin(const char* path = nullptr, std::string* error = nullptr);

// All class records, in the order of their registration. Borrowed for the process's life, except
// those that a stream has registered for itself, which end with it.
QUILL_PUBLIC std::vector<const base::IClass*> Classes();

// Creates and configures an object of the class `name`; held by the caller. Null, and logged,
// when the class is unknown, it needs constructor arguments, or it does not know one of the
// `attributes`.
QUILL_PUBLIC base::object* CreateObject(const char* name, const char* attributes);

// Holds an object, seen through one of its interfaces. Movable, one thread at a time.
template <typename Interface>
class Handle {
 public:
  Handle() = default;
  // Takes over a hold; null when the object has no such interface.
  explicit Handle(base::object* held)
      : _object(held), _face(held == nullptr ? nullptr : dynamic_cast<Interface*>(held)) {
    if (_face == nullptr) reset();
  }
  Handle(Handle&& other) noexcept
      : _object(std::exchange(other._object, nullptr)),
        _face(std::exchange(other._face, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(_object, other._object);
    std::swap(_face, other._face);
    return *this;
  }
  ~Handle() { reset(); }

  // Gives the hold back; the last one closes and destroys the object.
  void reset() {
    _face = nullptr;
    if (base::object* held = std::exchange(_object, nullptr)) held->Release();
  }
  explicit operator bool() const { return _face != nullptr; }
  Interface* operator->() const { return _face; }
  Interface& operator*() const { return *_face; }
  Interface* get() const { return _face; }
  base::object* Object() const { return _object; }

 private:
  base::object* _object = nullptr;
  Interface* _face = nullptr;
};

template <typename Interface>
Handle<Interface> Create(const char* name, const char* attributes = "") {
  return Handle<Interface>(CreateObject(name, attributes));
}

// Counters of one stream. All but `held` only grow.
struct StreamCounters {
  std::string session;          // the session's name
  std::uint64_t published = 0;  // units published by the real-time side
  std::uint64_t delivered = 0;  // of these, taken by this side
  // Captures that were not published, by reason.
  std::uint64_t dropped = 0;      // no free slot, or the chain was late
  std::uint64_t thinned = 0;      // above the frame rate
  std::uint64_t untriggered = 0;  // not requested, where each picture is
  std::uint64_t refused = 0;      // descriptors that failed their check
  std::uint64_t held = 0;         // delivered and still held by the client
};
// The streams of this process whose memory is still in use, open ones first. Any thread.
QUILL_PUBLIC std::vector<StreamCounters> Streams();

// A stream of the real-time side, of this client or of another one.
struct RtosStream {
  int id = 0;                                // for the operations below
  pid_t client = 0;                          // the process that it belongs to
  std::string chain;                         // class names of its elements, "+" between them
  std::string state;                         // "ready", "play", "ended" or "failed"
  std::map<std::string, std::string> media;  // what it delivers: "codec", "w", "h", …
  // Words of its rate-control block by their names (doc/rate-control.md); empty without one.
  std::map<std::string, int> control;
  StreamCounters counters;
};
// The Unix socket of the real-time side to use: from the options, else from the environment
// variable TESSEL_RTOS_SOCKET. Empty: this library starts one. Any thread.
QUILL_PUBLIC std::string RtosSocket();
// All streams of the real-time side, in the order of their creation. Connects to the socket
// that the options name, but starts none. False with `error` when no real-time side answers. Any
// thread, as the three below.
QUILL_PUBLIC bool ListRtosStreams(std::vector<RtosStream>& streams, std::string& error);
// Steers a stream, of this client or another one. False with `error` when the stream is unknown,
// its chain does not use the word, or it does not answer.
QUILL_PUBLIC bool SetControlWord(int id, const std::string& word, int value, std::string& error);
QUILL_PUBLIC bool RequestKeyFrame(int id, std::string& error);
QUILL_PUBLIC bool TriggerFrame(int id, std::string& error);

// The path that the "file://" URL of a still picture names: relative to the working directory
// unless it begins with "/". A "%" and two hexadecimal digits stand for a byte (RFC 3986); "%01d"
// to "%09d", which number files, stay as they are, and so does a "%" before anything else, as in
// "%d.jpeg". False with `error`, which does not repeat the URL. Any thread.
[[nodiscard]] QUILL_PUBLIC bool ReadFileUrl(const std::string& url, std::string& path,
                                            std::string& error);
// The URL that ReadFileUrl() reads as `path`, the path of a file. Any thread.
QUILL_PUBLIC std::string FileUrlOf(const std::string& path);

// The shared window: bytes in use, and the number of free pieces.
struct WindowUse {
  std::size_t used_bytes = 0;
  std::size_t free_pieces = 0;
};
QUILL_PUBLIC WindowUse GetWindowUse();

// Process of the real-time side in use, or 0. Any thread.
QUILL_PUBLIC pid_t RtosProcessId();

}  // namespace quill::host
