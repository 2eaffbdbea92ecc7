#include "AudioDevices.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "quill/ostream_string.h"

namespace tessel::rtos {
namespace {

using quill::base::ConvertToImpl;

constexpr const char* kKinds[] = {"Microphone", "Speaker"};
constexpr char kUsual[] =
    "Microphone={rate=48000,channels=2,canVol=true,vol=100,canAgc=true,canMute=true},"
    "Speaker={rate=48000,channels=2,canVol=true,vol=100,canAgc=false,canMute=true}";
constexpr std::size_t kMostBytes = std::size_t{64} << 10;  // of a description
constexpr int kLeastRate = 8'000;                          // samples/s
constexpr int kMostRate = 192'000;
constexpr int kRateStep = 50;  // a block of 20 ms is a whole number of samples
constexpr int kMostChannels = 2;

// The description as one line, without blanks, which no value has. False when it is none.
bool ReadText(std::istream& file, std::string& text) {
  bool is_comment = false;
  for (std::size_t i = 0; i < kMostBytes; ++i) {
    const int letter = file.get();
    if (letter == std::istream::traits_type::eof()) return !file.bad();
    if (letter == '\0') return false;
    is_comment = letter == '#' || (is_comment && letter != '\n');
    if (!is_comment && std::strchr(" \t\r\n", letter) == nullptr) text += static_cast<char>(letter);
  }
  return false;
}

}  // namespace

std::unique_ptr<AudioDevice> AudioDevice::Create(const AttrSet& description, std::string& error) {
  std::unique_ptr<AudioDevice> device(new AudioDevice);
  return device->Read(description, error) ? std::move(device) : nullptr;
}

bool AudioDevice::Read(const AttrSet& description, std::string& error) {
  link::AudioControls described;
  for (const AttrSet::Pair& pair : description.Pairs()) {
    if (link::HasField<link::AudioControls>(pair.key)) continue;
    error = "unknown key \"" + pair.key + "\"";
    return false;
  }
  if (!link::Read(description, described, error)) return false;
  _rate = described.rate;
  _channels = described.channels;
  _can_volume = described.can_volume;
  _volume_min = described.volume_min.value_or(_volume_min);
  _volume_max = described.volume_max.value_or(_volume_max);
  _can_agc = described.can_agc;
  _can_mute = described.can_mute;
  const int volume = described.volume.value_or(_volume_max);
  _volume = volume;
  _agc = _can_agc && described.agc.value_or(false);
  _mute = _can_mute && described.mute.value_or(false);
  if (_rate < kLeastRate || _rate > kMostRate || _rate % kRateStep != 0) {
    error = "rate=" + std::to_string(_rate) + " is no multiple of 50 in 8000..192000";
  } else if (_channels < 1 || _channels > kMostChannels) {
    error = "channels=" + std::to_string(_channels) + " outside 1..2";
  } else if (_volume_max <= 0 || _volume_max <= _volume_min) {  // muting leaves 0 behind
    error = "volmax=" + std::to_string(_volume_max) +
            " is not above 0 and volmin=" + std::to_string(_volume_min);
  } else if (volume < _volume_min || volume > _volume_max) {
    error = "vol=" + std::to_string(volume) + " outside volmin..volmax";
  } else {
    return true;
  }
  return false;
}

float AudioDevice::Gain() const {
  if (_mute.load(std::memory_order_relaxed)) return 0;
  if (!_can_volume) return 1;
  // A muted device's 0 may lie below the lower limit.
  const int volume = std::max(_volume.load(std::memory_order_relaxed), _volume_min);
  const double place = (static_cast<double>(volume) - _volume_min) /
                       (static_cast<double>(_volume_max) - _volume_min);
  return static_cast<float>(place * place * place);
}

link::AudioControls AudioDevice::Describe() const {
  link::AudioControls controls;
  controls.rate = _rate;
  controls.channels = _channels;
  controls.can_volume = _can_volume;
  if (_can_volume) {
    controls.volume = _volume.load();
    controls.volume_min = _volume_min;
    controls.volume_max = _volume_max;
  }
  controls.can_agc = _can_agc;
  if (_can_agc) controls.agc = _agc.load();
  controls.can_mute = _can_mute;
  if (_can_mute) controls.mute = _mute.load();
  return controls;
}

std::optional<int> AudioDevice::Check(const std::string& control, const std::string& text,
                                      std::string& error) const {
  const bool is_there = (control == link::kVolume && _can_volume) ||
                        (control == link::kAgc && _can_agc) ||
                        (control == link::kMute && _can_mute);
  int volume = 0;
  bool is_on = false;
  if (!is_there) {
    error = "it has no control \"" + control + "\"";
  } else if (control != link::kVolume) {
    if (ConvertToImpl(text.c_str(), is_on)) return is_on ? 1 : 0;
    error = control + "=" + text + " is neither true nor false";
  } else {
    // 0 is also what muting leaves behind, whatever the lower limit.
    const bool fits = ConvertToImpl(text.c_str(), volume) && volume <= _volume_max &&
                      (volume >= _volume_min || volume == 0);
    if (fits) return volume;
    error = control + "=" + text + " outside " + std::to_string(_volume_min) + ".." +
            std::to_string(_volume_max);
  }
  return std::nullopt;
}

void AudioDevice::Store(const std::string& control, int value) {
  if (control == link::kVolume) _volume = value;
  if (control == link::kAgc) _agc = value != 0;
  if (control == link::kMute) _mute = value != 0;
  if (control == link::kMute && value != 0) _volume = 0;
}

bool AudioDevice::Set(const AttrSet& settings, std::string& error) {
  std::vector<std::pair<std::string, int>> checked;
  for (const AttrSet::Pair& pair : settings.Pairs()) {
    const std::optional<int> value = Check(pair.key, pair.value, error);
    if (!value) return false;
    checked.emplace_back(pair.key, *value);
  }
  for (const auto& [control, value] : checked) Store(control, value);
  if (checked.empty()) error = "nothing to set";
  return !checked.empty();
}

AudioDevices AudioDevices::Usual() {
  AudioDevices usual;
  std::string error;
  [[maybe_unused]] const bool is_read = usual.AddAll(AttrSet(kUsual), error);
  assert(is_read);
  return usual;
}

std::optional<AudioDevices> AudioDevices::Load(const std::string& path, std::string& error) {
  std::error_code failure;
  const bool is_file = std::filesystem::is_regular_file(path, failure);  // else opening may wait
  std::ifstream file;
  if (is_file) file.open(path);
  error = "cannot be read";
  auto devices = is_file ? Read(file, error) : std::nullopt;
  if (!devices) error.insert(0, path + ": ");
  return devices;
}

std::optional<AudioDevices> AudioDevices::Read(std::istream& file, std::string& error) {
  std::string text;
  AttrSet description;
  AudioDevices devices;
  error = ReadText(file, text) ? "" : "cannot be read";
  if (error.empty() && !description.Parse(text.c_str())) error = description.Error();
  if (error.empty() && devices.AddAll(description, error)) return devices;
  return std::nullopt;
}

bool AudioDevices::AddAll(const AttrSet& description, std::string& error) {
  for (const auto& [kind, text] : description.Pairs()) {
    AttrSet pairs;
    const bool is_kind = std::find(std::begin(kKinds), std::end(kKinds), kind) != std::end(kKinds);
    if (!is_kind) {
      error = "no audio device is called \"" + kind + "\"; there are Microphone and Speaker";
    } else if (!pairs.Parse(text.c_str())) {
      error = kind + ": " + pairs.Error();
    } else if (auto device = AudioDevice::Create(pairs, error)) {
      _devices[kind] = std::move(device);
      continue;
    } else {
      error.insert(0, kind + ": ");
    }
    return false;
  }
  return true;
}

const AudioDevice* AudioDevices::Find(const std::string& kind) const {
  const auto place = _devices.find(kind);
  return place == _devices.end() ? nullptr : place->second.get();
}

// Not by the process, whose number may come again: no handle of one is a handle of the next.
std::uint64_t AudioDevices::NewHandles() {
  std::random_device random;
  const std::uint64_t upper = random() & 0x7fffffffU;
  return (upper << 32 | (random() & 0xfffffff0U)) + 1;
}

std::uint64_t AudioDevices::Handle(const std::string& kind) const {
  const auto place = std::distance(_devices.begin(), _devices.find(kind));
  return _first_handle + static_cast<std::uint64_t>(place);
}

AudioDevice* AudioDevices::Known(const std::string& kind, std::string& error) const {
  const auto place = _devices.find(kind);
  if (place != _devices.end()) return place->second.get();
  error = "the board has no audio device \"" + kind + "\"";
  return nullptr;
}

bool AudioDevices::Execute(const link::ProbeAudio& request, link::ProbeAnswer& answer,
                           std::string& error) const {
  const AudioDevice* device = Known(request.device, error);
  if (device == nullptr) return false;
  static_cast<link::AudioControls&>(answer) = device->Describe();
  answer.object_base.number = Handle(request.device);
  return true;
}

bool AudioDevices::Execute(const link::SetAudio& request, link::Done&, std::string& error) {
  AudioDevice* device = Known(request.device, error);
  if (device == nullptr) return false;
  if (request.object_base.number != Handle(request.device)) {
    error =
        "object_base=" + quill::base::HandleText(request.object_base.number) + " is not its handle";
  } else if (device->Set(request.settings, error)) {
    return true;
  }
  error.insert(0, request.device + ": ");
  return false;
}

}  // namespace tessel::rtos
