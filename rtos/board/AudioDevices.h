// The board's audio devices. A description says what they are; clients change their controls. See
// doc/audio.md.
#pragma once

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "AudioService.h"
#include "messages/AudioControls.h"
#include "quill/AttrSet.h"

namespace tessel::rtos {

using quill::base::AttrSet;

// Any thread.
class AudioDevice {
 public:
  // Makes one from its pairs in a description. Null with `error` naming what is missing, unknown or
  // wrong.
  static std::unique_ptr<AudioDevice> Create(const AttrSet& description, std::string& error);

  int Rate() const { return _rate; }  // samples/s of each channel
  int Channels() const { return _channels; }
  // The factor that volume and mute result in, 0..1. It is the cube of the volume's place between
  // its limits, as on mixing desks: half way up is -18 dB.
  float Gain() const;
  bool HasAutomaticGain() const { return _agc.load(std::memory_order_relaxed); }

  link::AudioControls Describe() const;
  // Applies `settings` (link::kAudioSettings) in their order. Muting also sets the volume
  // to 0, and unmuting leaves it there. False with `error`, and nothing is set, when there are
  // none, the device lacks one, or a value is out of range.
  bool Set(const AttrSet& settings, std::string& error);

 private:
  AudioDevice() = default;
  bool Read(const AttrSet& description, std::string& error);
  // The value that the text of a setting stands for; none with `error` when it cannot be set.
  std::optional<int> Check(const std::string& control, const std::string& text,
                           std::string& error) const;
  void Store(const std::string& control, int value);

  // Constant after Create.
  int _rate = 0;
  int _channels = 0;
  bool _can_volume = false;
  int _volume_min = 0;
  int _volume_max = 100;
  bool _can_agc = false;
  bool _can_mute = false;

  std::atomic<int> _volume{100};
  std::atomic<bool> _agc{false};
  std::atomic<bool> _mute{false};
};

// All of them, by kind: "Microphone" and "Speaker". Constant but for the controls. Any thread.
class AudioDevices : public AudioService {
 public:
  // A microphone and a speaker with everything but automatic gain for the speaker.
  static AudioDevices Usual();
  // From the file `path`: `Microphone={…},Speaker={…}`. Line breaks, indentation and what follows a
  // "#" do not count; a kind that is left out is not there. None with `error` naming file, device
  // and key.
  static std::optional<AudioDevices> Load(const std::string& path, std::string& error);
  // The same from what such a file holds. None with `error` naming device and key.
  static std::optional<AudioDevices> Read(std::istream& file, std::string& error);

  // Null when the board has none of that kind.
  const AudioDevice* Find(const std::string& kind) const;
  bool Execute(const link::ProbeAudio& request, link::ProbeAnswer& answer,
               std::string& error) const override;
  bool Execute(const link::SetAudio& request, link::Done&, std::string& error) override;
  const AudioDevice* Microphone() const override { return Find("Microphone"); }

 private:
  AudioDevices() = default;
  bool AddAll(const AttrSet& description, std::string& error);
  AudioDevice* Known(const std::string& kind, std::string& error) const;
  std::uint64_t Handle(const std::string& kind) const;
  static std::uint64_t NewHandles();

  std::map<std::string, std::unique_ptr<AudioDevice>> _devices;
  std::uint64_t _first_handle = NewHandles();  // the others follow
};

}  // namespace tessel::rtos
