// Reads one stream of a media file or a device, and decodes it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "Libraries.h"

struct AVDictionary;
struct AVFormatContext;
struct AVIOContext;

namespace tessel::rtos {

// One thread at a time.
class MediaReader {
 public:
  enum class Kind { kVideo, kSound };
  enum class Step {
    kFrame,       // a picture, or a piece of sound
    kNothingYet,  // a device has not captured any
    kEnd,         // the file is over
    kFailed,      // Error() says why
  };
  struct Option {
    const char* name;
    std::string value;
  };

  // `name` is what errors call it.
  MediaReader(Kind kind, std::string name);
  ~MediaReader();

  // Opens the file `path`; takes at most the time that a command may take. False, with Error() set,
  // when it is not a media file or has no stream of this kind. A reader that failed to open, here
  // or in OpenDevice(), cannot be used again.
  [[nodiscard]] bool OpenFile(const std::string& path);
  // Opens the device `device` of the library's `driver`. Reading it never waits.
  [[nodiscard]] bool OpenDevice(const char* driver, const std::string& device,
                                std::span<const Option> options);

  // The next frame. A file that breaks off ends there.
  Step Decode(AVFrame& frame);
  // Goes back to the start of the file and decodes the first frame there; not kEnd.
  Step StartAnew(AVFrame& frame);

  // The frame's time stamp as the container has it, where it has one.
  std::optional<std::int64_t> StampNs(const AVFrame& frame) const;
  // That of the first frame that had one, or 0.
  std::int64_t FirstStampNs() const { return _first_stamp_ns.value_or(0); }
  // Time from the file's first picture or sound to FirstStampNs(), ns.
  std::int64_t LeadNs() const;
  // How long the frame is shown: by its own duration, else the stream's frame rate, else a guess.
  std::int64_t DurationNs(const AVFrame& frame) const;

  // Sets Error(); always false.
  bool FailWith(const std::string& reason);
  const std::string& Error() const { return _error; }

 private:
  struct Free {
    void operator()(AVFormatContext* format) const;
  };
  // The outcome of giving the decoder a packet.
  enum class Fed { kTaken, kRefused, kNothingYet, kFailed };

  bool OpenContainer();
  static int OpenPart(AVFormatContext* format, AVIOContext** into, const char* url, int flags,
                      AVDictionary** options);
  bool FindStream();
  bool OpenDecoder();
  Fed Feed();
  bool SeekTime();
  bool SeekPlace();
  bool Reopen();
  std::int64_t ToNs(std::int64_t time) const;

  // Constant until it is opened anew.
  const Kind _kind;
  const std::string _name;
  std::string _path;
  bool _is_device = false;
  int _stream = -1;                    // index of the stream
  std::int64_t _nominal_frame_ns = 0;  // for frames that do not say how long they last

  std::int64_t _deadline_ns = 0;  // CLOCK_MONOTONIC; reading after it fails. `_format` points to it
  std::string _refused;           // a part of the file that is not opened
  std::unique_ptr<AVFormatContext, Free> _format;
  CodecPtr _codec;
  PacketPtr _packet;
  std::optional<std::int64_t> _first_stamp_ns;
  std::string _error;
};

}  // namespace tessel::rtos
