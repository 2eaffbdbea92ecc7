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
constexpr const char* kControls[] = {"vol", "agc", "mute"};
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

std::optional<int> AudioDevice::Check(const std::string& control, const std::string& text,
                                      std::string& error) const {
  const bool is_there = (control == "vol" && _can_volume) || (control == "agc" && _can_agc) ||
                        (control == "mute" && _can_mute);
  int volume = 0;
  bool is_on = false;
  if (!is_there) {
    error = "it has no control \"" + control + "\"";
  } else if (control != "vol") {
    if (ConvertToImpl(text.c_str(), is_on)) return is_on ? 1 : 0;
    error = control + "=" + text + " is neither true nor false";
  } else {
    // 0 is also what muting leaves behind, whatever the lower limit.
    const bool fits = ConvertToImpl(text.c_str(), volume) && volume <= _volume_max &&
                      (volume >= _volume_min || volume == 0);
    if (fits) return volume;
    error = "vol=" + text + " outside " + std::to_string(_volume_min) + ".." +
            std::to_string(_volume_max);
  }
  return std::nullopt;
}

void AudioDevice::Store(const std::string& control, int value) {
  if (control == "vol") _volume = value;
  if (control == "agc") _agc = value != 0;
  if (control == "mute") _mute = value != 0;
  if (control == "mute" && value != 0) _volume = 0;
}

bool AudioDevice::Set(const AttrSet& request, std::string& error) {
  std::vector<std::pair<std::string, int>> settings;
  for (const AttrSet::Pair& pair : request.Pairs()) {
    if (std::find(std::begin(kControls), std::end(kControls), pair.key) == std::end(kControls)) {
      continue;
    }
    const std::optional<int> value = Check(pair.key, pair.value, error);
    if (!value) return false;
    settings.emplace_back(pair.key, *value);
  }
  for (const auto& [control, value] : settings) Store(control, value);
  if (settings.empty()) error = "nothing to set";
  return !settings.empty();
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
  answer.Add("object_base", quill::base::HandleText(Handle(request.Get("devType"))));
  device->Describe(answer);
  return true;
}

bool AudioDevices::Set(const AttrSet& request, std::string& error) {
  AudioDevice* device = Known(request, error);
  if (device == nullptr) return false;
  const std::string kind = request.Get("devType");
  const char* handle = request.Get("object_base");
  if (quill::base::ReadHandle(handle) != Handle(kind)) {
    error = std::string("object_base=") + (handle == nullptr ? "" : handle) + " is not its handle";
  } else if (device->Set(request, error)) {
    return true;
  }
  error.insert(0, kind + ": ");
  return false;
}

}  // namespace tessel::rtos
