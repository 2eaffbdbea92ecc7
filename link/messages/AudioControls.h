// The audio devices of the board, which all clients share.
#pragma once

#include "messages/Request.h"

namespace tessel::link {

// What a device is and can do; also what a file that describes the board says of each.
struct AudioControls {
  static constexpr char kName[] = "device";
  int rate = 0;  // samples/s
  int channels = 0;
  bool can_volume = false;
  std::optional<int> volume;
  std::optional<int> volume_min;
  std::optional<int> volume_max;
  bool can_agc = false;
  std::optional<bool> agc;
  bool can_mute = false;
  std::optional<bool> mute;
  static constexpr auto Fields() {
    return std::tuple{
        Field("rate", &AudioControls::rate),         Field("channels", &AudioControls::channels),
        Field("canVol", &AudioControls::can_volume), Field("vol", &AudioControls::volume),
        Field("volmin", &AudioControls::volume_min), Field("volmax", &AudioControls::volume_max),
        Field("canAgc", &AudioControls::can_agc),    Field("agc", &AudioControls::agc),
        Field("canMute", &AudioControls::can_mute),  Field("mute", &AudioControls::mute)};
  }
};

// Controls that can be set: a number, and two that are true or false.
inline constexpr char kVolume[] = "vol";
inline constexpr char kAgc[] = "agc";
inline constexpr char kMute[] = "mute";
inline constexpr const char* kAudioSettings[] = {kVolume, kAgc, kMute};

struct ProbeAnswer : AudioControls {
  static constexpr char kName[] = "ProbeAudioDriver answer";
  bool rst = true;     // whether the device can be used
  Handle object_base;  // of the device
  static constexpr auto Fields() {
    return std::tuple_cat(std::tuple{Field("rst", &ProbeAnswer::rst),
                                     Field("object_base", &ProbeAnswer::object_base)},
                          AudioControls::Fields());
  }
};

struct ProbeAudio {
  static constexpr char kName[] = "ProbeAudioDriver";
  using Answer = ProbeAnswer;
  std::string device;  // its kind
  static constexpr auto Fields() { return std::tuple{Field("devType", &ProbeAudio::device)}; }
};

// All settings are checked before the first is stored; then they are stored in their order.
struct SetAudio {
  static constexpr char kName[] = "SetAudioDriver";
  using Answer = Done;
  std::string device;  // its kind
  Handle object_base;  // as the probe brought it
  AttrSet settings;    // some of kAudioSettings, as text: a device's own limits decide
  static constexpr auto Fields() {
    return std::tuple{Field("devType", &SetAudio::device),
                      Field("object_base", &SetAudio::object_base),
                      SomeOf(kAudioSettings, &SetAudio::settings)};
  }
};

}  // namespace tessel::link
