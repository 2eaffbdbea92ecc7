#include "AudioDevices.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string_view>
#include <system_error>

#include "quill/ostream_string.h"

namespace tessel::rtos {
namespace {

using quill::base::ConvertToImpl;

constexpr const char* kKinds[] = {"Microphone", "Speaker"};
constexpr std::string_view kKeys[] = {"rate",   "channels", "canVol", "vol",     "volmin",
                                      "volmax", "canAgc",   "agc",    "canMute", "mute"};
constexpr char kUsual[] =
    "Microphone={rate=48000,channels=2,canVol=true,vol=100,canAgc=true,canMute=true},"
    "Speaker={rate=48000,channels=2,canVol=true,vol=100,canAgc=false,canMute=true}";
constexpr std::size_t kMostBytes = std::size_t{64} << 10;  // of a description
constexpr int kLeastRate = 8'000;                          // samples/s
constexpr int kMostRate = 192'000;
constexpr int kRateStep = 50;  // a block of 20 ms is a whole number of samples
constexpr int kMostChannels = 2;

template <typename Value>
bool ReadValue(const AttrSet& set, const char* key, bool is_needed, Value& value,
               std::string& error) {
  const char* text = set.Get(key);
  if (text == nullptr && !is_needed) return true;
  if (text != nullptr && ConvertToImpl(text, value)) return true;
  error = text == nullptr ? std::string(key) + " is missing"
                          : std::string(key) + "=" + text + " cannot be read";
  return false;
}

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
  for (const AttrSet::Pair& pair : description.Pairs()) {
    if (std::find(std::begin(kKeys), std::end(kKeys), pair.key) != std::end(kKeys)) continue;
    error = "unknown key \"" + pair.key + "\"";
    return false;
  }
  bool agc = false;
  bool mute = false;
  const bool is_read = ReadValue(description, "rate", true, _rate, error) &&
                       ReadValue(description, "channels", true, _channels, error) &&
                       ReadValue(description, "canVol", true, _can_volume, error) &&
                       ReadValue(description, "volmin", false, _volume_min, error) &&
                       ReadValue(description, "volmax", false, _volume_max, error) &&
                       ReadValue(description, "canAgc", true, _can_agc, error) &&
                       ReadValue(description, "agc", false, agc, error) &&
                       ReadValue(description, "canMute", true, _can_mute, error) &&
                       ReadValue(description, "mute", false, mute, error);
  int volume = _volume_max;
  if (!is_read || !ReadValue(description, "vol", false, volume, error)) return false;
  _volume = volume;
  _agc = _can_agc && agc;
  _mute = _can_mute && mute;
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

void AudioDevice::Describe(AttrSet& answer) const {
  answer.Add("rate", _rate);
  answer.Add("channels", _channels);
  answer.Add("canVol", _can_volume);
  if (_can_volume) {
    answer.Add("vol", _volume.load());
    answer.Add("volmin", _volume_min);
    answer.Add("volmax", _volume_max);
  }
  answer.Add("canAgc", _can_agc);
  if (_can_agc) answer.Add("agc", _agc.load());
  answer.Add("canMute", _can_mute);
  if (_can_mute) answer.Add("mute", _mute.load());
}

bool AudioDevice::SetVolume(const std::string& value, std::string& error) {
  int volume = 0;
  // 0 is also what muting leaves behind, whatever the lower limit.
  const bool fits = ConvertToImpl(value.c_str(), volume) && volume <= _volume_max &&
                    (volume >= _volume_min || volume == 0);
  if (fits) _volume = volume;
  if (!fits) {
    error = "vol=" + value + " outside " + std::to_string(_volume_min) + ".." +
            std::to_string(_volume_max);
  }
  return fits;
}

bool AudioDevice::Set(const std::string& control, const std::string& value, std::string& error) {
  const bool is_there = (control == "vol" && _can_volume) || (control == "agc" && _can_agc) ||
                        (control == "mute" && _can_mute);
  if (!is_there) {
    error = "it has no control \"" + control + "\"";
    return false;
  }
  if (control == "vol") return SetVolume(value, error);
  bool is_on = false;
  if (!ConvertToImpl(value.c_str(), is_on)) {
    error = control + "=" + value + " is neither true nor false";
    return false;
  }
  if (control == "mute" && is_on) _volume = 0;
  (control == "mute" ? _mute : _agc) = is_on;
  return true;
}

AudioDevices AudioDevices::Usual() {
  AudioDevices usual;
  std::string error;
  Read(AttrSet(kUsual), usual._devices, error);
  return usual;
}

bool AudioDevices::Load(const std::string& path, std::string& error) {
  std::error_code failure;
  const bool is_file = std::filesystem::is_regular_file(path, failure);  // else opening may wait
  std::ifstream file;
  if (is_file) file.open(path);
  std::string text;
  AttrSet description;
  Devices devices;
  error = is_file && ReadText(file, text) ? "" : "cannot be read";
  if (error.empty() && !description.Parse(text.c_str())) error = description.Error();
  if (error.empty() && Read(description, devices, error)) {
    _devices = std::move(devices);
    return true;
  }
  error = path + ": " + error;
  return false;
}

bool AudioDevices::Read(const AttrSet& description, Devices& devices, std::string& error) {
  for (const auto& [kind, text] : description.Pairs()) {
    AttrSet pairs;
    const bool is_kind = std::find(std::begin(kKinds), std::end(kKinds), kind) != std::end(kKinds);
    if (!is_kind) {
      error = "no audio device is called \"" + kind + "\"; there are Microphone and Speaker";
    } else if (!pairs.Parse(text.c_str())) {
      error = kind + ": " + pairs.Error();
    } else if (auto device = AudioDevice::Create(pairs, error)) {
      devices[kind] = std::move(device);
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

std::string AudioDevices::Handle(const std::string& kind) const {
  const auto number =
      static_cast<std::uint64_t>(std::distance(_devices.begin(), _devices.find(kind)));
  return quill::base::ToString(reinterpret_cast<const void*>(_first_handle + number));
}

AudioDevice* AudioDevices::Known(const AttrSet& request, std::string& error) const {
  const char* kind = request.Get("devType");
  const auto place = _devices.find(kind == nullptr ? "" : kind);
  if (place != _devices.end()) return place->second.get();
  error = std::string("the board has no audio device \"") + (kind == nullptr ? "" : kind) + "\"";
  return nullptr;
}

bool AudioDevices::Probe(const AttrSet& request, AttrSet& answer, std::string& error) const {
  const AudioDevice* device = Known(request, error);
  if (device == nullptr) return false;
  answer.Add("rst", true);
  answer.Add("object_base", Handle(request.Get("devType")));
  device->Describe(answer);
  return true;
}

bool AudioDevices::Set(const AttrSet& request, std::string& error) {
  AudioDevice* device = Known(request, error);
  if (device == nullptr) return false;
  const std::string kind = request.Get("devType");
  const char* handle = request.Get("object_base");
  if (handle == nullptr ||
      std::strtoull(handle, nullptr, 16) != std::strtoull(Handle(kind).c_str(), nullptr, 16)) {
    error = kind + ": object_base=" + (handle == nullptr ? "" : handle) + " is not its handle";
    return false;
  }
  bool is_any = false;
  for (const char* control : {"vol", "agc", "mute"}) {
    const char* value = request.Get(control);
    if (value == nullptr) continue;
    is_any = true;
    if (device->Set(control, value, error)) continue;
    error.insert(0, kind + ": ");
    return false;
  }
  if (!is_any) error = kind + ": nothing to set";
  return is_any;
}

}  // namespace tessel::rtos
