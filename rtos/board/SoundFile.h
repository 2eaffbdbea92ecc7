// Sound from a media file, converted as asked.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "MediaReader.h"
#include "SoundInput.h"
#include "SoundQueue.h"

namespace tessel::rtos {

// Samples follow one another as decoded; time stamps are ignored, so gaps and overlaps in them
// neither drop nor repeat samples. A loop joins the last sample to the first without a seam; a
// file of less than a second is decoded once and then repeated from memory.
class SoundFile : public SoundInput {
 public:
  // Opens the file `path` and decodes the first of it. Null with `error`, which names the
  // microphone, when there is no such file or no sound in it.
  static std::unique_ptr<SoundFile> Open(const std::string& path, bool loop,
                                         const SoundFormat& format, std::string& error);

  Step Read(std::span<std::int16_t> samples, std::int64_t& time_ns) override;
  void KeepLead() override;

 private:
  SoundFile(const std::string& path, const SoundFormat& format);
  bool FillQueue();
  bool ReadAhead(bool loop);
  void Repeat(std::span<std::int16_t> samples);

  const SoundFormat _format;
  const std::size_t _ahead;  // samples of all channels that make a second
  bool _loop = false;        // once something has been decoded
  MediaReader _reader;
  FramePtr _frame = MakeFrame();
  SoundQueue _queue;
  std::size_t _silence = 0;               // samples of all channels that come before the first
  bool _is_over = false;                  // nothing follows what is in the queue
  std::vector<std::int16_t> _short_file;  // whole; empty unless it is one that loops
  std::size_t _place = 0;                 // in _short_file
};

}  // namespace tessel::rtos
