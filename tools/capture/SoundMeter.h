// Measures the level of captured sound.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "MediaFormat.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace tessel::tool {

// One thread at a time.
class SoundMeter {
 public:
  using Clock = std::chrono::steady_clock;

  // Of a channel; dBFS, minus infinity for digital silence. A sine of full scale has an RMS of -3.
  struct Level {
    double peak_db = 0;
    double rms_db = 0;
  };

  // Null when AAC cannot be decoded here.
  static std::unique_ptr<SoundMeter> Create(const MediaFormat& format);
  ~SoundMeter();
  SoundMeter(const SoundMeter&) = delete;
  SoundMeter& operator=(const SoundMeter&) = delete;

  // Takes a frame of the stream. Priming does not count.
  void Add(std::span<const std::uint8_t> bytes);
  // Levels since the last call; a peak is held for 1.5 s.
  std::vector<Level> Recent(Clock::time_point now);
  // Levels since the beginning.
  std::vector<Level> Total() const;

 private:
  struct Sum {
    double squares = 0;  // of samples whose full scale is 1
    double peak = 0;
    std::uint64_t samples = 0;
    void Add(double sample);
    void Add(const Sum& other);
    Level ToLevel() const;
  };
  struct Channel {
    Sum total;  // without `recent`
    Sum recent;
    double held_peak = 0;
    Clock::time_point held_until;
  };

  SoundMeter() = default;
  bool OpenDecoder();
  void Decode(std::span<const std::uint8_t> bytes);

  std::vector<Channel> _channels;
  int _left_out = 0;                 // samples of each channel that are still to be left out
  AVCodecContext* _codec = nullptr;  // null for PCM
  AVPacket* _packet = nullptr;
  AVFrame* _frame = nullptr;
};

// "-18.1/-18.0" by channels.
std::string LevelText(std::span<const SoundMeter::Level> levels, double SoundMeter::Level::*which);

}  // namespace tessel::tool
