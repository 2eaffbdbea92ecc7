// Sound from a media file, converted as asked.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "MediaReader.h"
#include "SoundInput.h"
#include "SoundQueue.h"

namespace tessel::rtos {

// Samples follow one another as decoded, whatever time stamps say: neither gaps nor overlaps in a
// file's times drop or double any. A loop joins the last sample to the first without a seam.
class SoundFile : public SoundInput {
 public:
  // Opens the file `path` and decodes the first of it. Null with `error`, which names the
  // microphone, when there is no such file or no sound in it.
  static std::unique_ptr<SoundFile> Open(const std::string& path, bool loop,
                                         const SoundFormat& format, std::string& error);

  Step Read(std::span<std::int16_t> samples, std::int64_t& time_ns) override;

 private:
  SoundFile(const std::string& path, bool loop, const SoundFormat& format);
  bool FillQueue();

  const bool _loop;
  MediaReader _reader;
  FramePtr _frame = MakeFrame();
  SoundQueue _queue;
  bool _is_over = false;  // nothing follows what is in the queue
};

}  // namespace tessel::rtos
