// What a chain on the real-time side is made of. One chain runs on one thread, frame by frame, from
// the source to the sink:
//
//   source.Await ─> all Admit ─> sink.Reserve ─> source.Process ─> … ─> sink.Process
//
// Whether a capture is wanted is asked first, and a slot for the result is reserved before its
// picture is made: a stream that has to drop drops whole captures and never a picture that others
// refer to. Whichever element writes the final bytes writes them into that slot.
//
// Sound is one signal cut into blocks, and elements keep some of it from block to block. So each
// block goes through the whole chain, also when there is no slot: what is dropped then is the
// result.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "quill/AttrSet.h"
#include "quill/VbrcBlock.h"

namespace tessel::link {
class SessionProducer;
}

namespace tessel::rtos {

class AudioDevice;
class QpPolicy;
struct ElementRow;

using quill::base::AttrSet;
using quill::stream::VbrcBlock;

// Where the board's inputs come from.
struct Board {
  // "test": the test pattern. "/dev/video*": a V4L2 camera. Anything else: a media file.
  std::string sensor = "test";
  // "test": a tone that beeps each second. "tone" or "tone:HZ": without beeps. "alsa" or
  // "alsa:NAME": a sound card. Anything else: a media file.
  std::string mic = "test";
  bool loop = true;   // a media file starts anew at its end; else the stream ends there
  bool paced = true;  // live, at the asked rate; else as fast as the consumer takes frames
  int slots = 24;     // most frames in flight of one stream
  const AudioDevice* microphone = nullptr;  // null: it has none
  // Whether one film is both: what begins later in it then does so here.
  bool IsFilm() const { return sensor == mic; }
};

// What the samples of a picture mean.
enum class Colours {
  kVideo,  // ITU-R BT.709, limited range
  kJpeg,   // ITU-R BT.601, full range, as JFIF files have it
};

// A raw picture, planar YUV 4:2:0, 8 bits. `planes` point into memory of the element that made it,
// or into the slot, and hold until the next picture is made. Lines may be written up to their
// stride.
struct Picture {
  int width = 0;                 // luma samples
  int height = 0;                // luma lines
  std::uint8_t* planes[3] = {};  // Y, U, V
  int strides[3] = {};           // bytes from line to line
};

// The rate-control block as read once for a frame; every element acts on the same values.
struct RateControl {
  int bitrate_max = 0;     // bits/s
  int bitrate_min = 0;     // bits/s
  int bitrate_target = 0;  // bits/s
  int framerate = 0;       // frames/s
  int framerate_max = 0;   // frames/s
  int framerate_min = 0;   // frames/s
  int qp = 0;              // 0: rate control decides
  int qp_max = 0;
  int qp_min = 0;
  std::uint32_t keyframe_req = 0;  // running counts of requests
  std::uint32_t trigger_req = 0;
};
RateControl ReadRateControl(const VbrcBlock& block);

// One media unit on its way through the chain.
struct Unit {
  std::uint32_t capture = 0;   // counts captures, those that were missed too
  std::uint32_t missed = 0;    // captures between the unit before and this one that came too late
  std::uint32_t sequence = 0;  // counts captures but for those passed over on purpose
  // CLOCK_MONOTONIC at capture. Sound: of the first sample, be it of `samples` or, behind an
  // encoder, of the first one that a decoder makes of the result.
  std::int64_t time_ns = 0;
  int frames_per_second = 0;  // rate of the units at this place of the chain, as planned
  bool is_key = false;
  int qp = 0;       // that the encoder used
  Picture picture;  // raw video, made by the source
  // Sound, channels interleaved, made by the element in front; holds until it makes the next.
  std::span<const std::int16_t> samples;
  // The reserved slot; the last writing element fills it. Empty where sound is to be dropped.
  std::span<std::uint8_t> room;
  std::size_t size_bytes = 0;  // of the result, at the front of `room`
  RateControl control;         // zero in a chain without a block
};

// What is known of the media between two elements once the chain is ready.
struct Media {
  int width = 0;               // pixels
  int height = 0;              // pixels
  int frames_per_second = 0;   // nominal
  int sample_rate = 0;         // of sound, samples/s of each channel
  int channels = 0;            // of sound
  std::size_t unit_bytes = 0;  // an upper bound on one unit
  // What the Linux side is told: "codec", "w", "h" and what the codec adds. Bytes go as lower-case
  // hexadecimal digits.
  AttrSet description;
};

// What an element finds when its chain is built.
class Context {
 public:
  virtual ~Context() = default;
  virtual const Board& GetBoard() const = 0;
  // The rate-control block whose Linux address is `text`, or null, with `error` set, when it does
  // not lie in a block handed out.
  virtual VbrcBlock* Block(const char* text, std::string& error) const = 0;
  // The producer's end of the session `name`, at most once; null, with `error` set, when the Linux
  // side has handed out no such session.
  virtual std::unique_ptr<link::SessionProducer> Session(const char* name,
                                                         std::string& error) const = 0;
  // The rate asked of this chain in frames/s: the encoder's "fr", or 30.
  virtual int FramesPerSecond() const = 0;
  // The element that makes the final bytes out of the source's picture or sound. Null: the source
  // writes its picture, or the last element its sound, into the slot itself.
  virtual const ElementRow* Encoder() const = 0;
};

enum class Verdict {
  kPass,  // on to the next element
  kHold,  // passed over: nothing has asked for it
  kThin,  // passed over: it would exceed the frame rate
  kMore,  // nothing comes of it yet: the element wants to see the next ones first
  kEnd,   // the input has ended
  kFail,  // the chain cannot go on; LastError() says why
};

// Built, opened and destroyed on the command thread; all between is called on the chain's thread.
class Element {
 public:
  virtual ~Element() = default;

  // Checks the parameters and gets everything ready: `media` is what the element in front delivers
  // and becomes what this one does. False with `error` naming parameter and value ("qp=99 outside
  // 0..51"); the caller adds the element's name.
  [[nodiscard]] virtual bool Open(const Context& context, const AttrSet& params, Media& media,
                                  std::string& error) = 0;
  // Whether the capture just announced is wanted: kPass, kHold or kThin. It has no picture yet, and
  // may come to nothing all the same, for want of a slot: only Process() may count on it.
  virtual Verdict Admit(const Unit&) { return Verdict::kPass; }
  // The chain begins, or begins again, to move units.
  virtual void Start() {}
  // Does its part of the unit.
  virtual Verdict Process(Unit& unit) = 0;
  virtual void Stop() {}
  // Whether anything of what was processed is still to come.
  virtual bool KeepsBack() const { return false; }
  // The input has ended: gives what is kept back, one unit a call. kEnd: nothing (more). REQUIRES:
  // KeepsBack().
  virtual Verdict Drain(Unit&) { return Verdict::kEnd; }

  // What the elements in front are to be steered by; null for most elements. Once open.
  virtual QpPolicy* Policy() { return nullptr; }
  // A later element has a policy to follow. Borrows for the chain's life.
  virtual void Follow(QpPolicy&) {}

  const std::string& LastError() const { return _last_error; }

 protected:
  Verdict FailWith(std::string reason) {
    _last_error = std::move(reason);
    return Verdict::kFail;
  }

 private:
  std::string _last_error;
};

// Told when the chain has to stop waiting.
class StopSignal {
 public:
  virtual ~StopSignal() = default;
  // Sleeps until `due_ns` (CLOCK_MONOTONIC); false when the chain is told to stop.
  virtual bool SleepUntil(std::int64_t due_ns) = 0;
};

// The first element of a chain. Process() makes the picture, or the block of sound, of the moment
// that Await() announced.
class Source : public Element {
 public:
  // Waits until the next unit is due and fills in `capture`, `time_ns` and `frames_per_second`, and
  // `missed` where its schedule has given some up.
  // Verdict::kEnd when the chain is told to stop, or the input is over. With
  // `unit.control.framerate_max` above 0 that is the rate to hold.
  virtual Verdict Await(Unit& unit, StopSignal& stop) = 0;
  // Passes over the unit that Await() announced.
  virtual Verdict Skip(Unit& unit) = 0;
  // Live sources drop when there is no slot; the others wait for one.
  virtual bool IsLive() const = 0;
  // Whether its units are pieces of one signal, as those of sound are.
  virtual bool IsContinuous() const { return false; }
};

// Reads an integer parameter in `least`..`most` into `value`; an absent one keeps `value`. False
// with `error` naming parameter, value and range.
bool ReadInt(const AttrSet& params, const char* key, int least, int most, int& value,
             std::string& error);
// The block that vbrc= names, which has to be there. False with `error` set.
bool ReadBlock(const Context& context, const AttrSet& params, VbrcBlock*& block,
               std::string& error);
// Hexadecimal digits of `bytes`.
std::string Hex(std::span<const std::uint8_t> bytes);

// A row of the table of elements: the name in layout strings and what makes one.
struct ElementRow {
  const char* name;
  std::unique_ptr<Element> (*make)();
  bool is_encoder = false;  // makes the final bytes out of pictures or sound
  // What it wants to see, where it encodes pictures.
  std::optional<Colours> encodes = std::nullopt;
};
// The board's elements; names are unique.
std::span<const ElementRow> BoardElements();

}  // namespace tessel::rtos
