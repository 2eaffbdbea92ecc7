#include "AudioDriver.h"

#include <cstdlib>

#include "quill/Debug.h"
#include "quill/Factory.h"

namespace tessel::dualos {

using quill::base::AttrSet;
using quill::base::Factory;
using quill::stream::Failed;
using quill::stream::Trace;

namespace {

bool GetOrDef(const AttrSet& set, const char* key, bool value) {
  set.Get(key, value);
  return value;
}

const char* TextOf(bool value) { return value ? "true" : "false"; }

}  // namespace

AudioDriver::AudioDriver(const char* deviceKind) : devType(deviceKind) { Trace("AudioDriver"); }

bool AudioDriver::configure(AttrSet&) {
  AttrSet ap;
  ap.Add("cmd", "ProbeAudioDriver");
  ap.Add("devType", devType);
  if (Failed(!Factory::Globle().Run("shm0_cmd", ap), "!Factory::Globle().Run(\"shm0_cmd\",ap)")) {
    return false;
  }
  if (Failed(!GetOrDef(ap, "rst", true), "!ap.GetOrDef(\"rst\",true)")) return false;
  const char* handle = ap.Get("object_base");
  if (Failed(handle == nullptr, "!ap.Get(\"object_base\",_obj)")) return false;
  _obj = std::strtoull(handle, nullptr, 16);
  if (Failed(_obj == 0, "!_obj")) return false;
  if (Failed(!ap.Get("rate", _rate), "!ap.Get(\"rate\",_rate)")) return false;
  if (Failed(_rate == 0, "!_rate")) return false;
  if (Failed(!ap.Get("channels", _channels), "!ap.Get(\"channels\",_channels)")) return false;
  if (Failed(_channels == 0, "!_channels")) return false;
  if (Failed(!ap.Get("canVol", _canVolume), "!ap.Get(\"canVol\",_canVolume)")) return false;
  if (_canVolume) {
    ap.Get("vol", _volume);
    ap.Get("volmin", _volumeMin);
    ap.Get("volmax", _volumeMax);
  }
  if (Failed(!ap.Get("canAgc", _canAGC), "!ap.Get(\"canAgc\",_canAGC)")) return false;
  if (_canAGC) ap.Get("agc", _agc);
  if (Failed(!ap.Get("canMute", _canMute), "!ap.Get(\"canMute\",_canMute)")) return false;
  if (_canMute) ap.Get("mute", _mute);
  return true;
}

bool AudioDriver::Send(const char* key, const std::string& value) const {
  AttrSet ap;
  ap.Add("cmd", "SetAudioDriver");
  ap.Add("object_base", quill::base::ToString(reinterpret_cast<const void*>(_obj)));
  ap.Add("devType", devType);
  ap.Add(key, value);
  return Factory::Globle().Run("shm0_cmd", ap);
}

bool AudioDriver::Volume(int volume) {
  Trace("Volume");
  if (Failed(!IsSupportVolumeControl(), "!IsSupportVolumeControl()")) return false;
  // Not std::clamp, which requires minimum <= maximum: the limits come from the real-time side.
  if (volume > _volumeMax) {
    volume = _volumeMax;
  } else if (volume < _volumeMin) {
    volume = _volumeMin;
  }
  if (volume == _volume) return true;
  _volume = volume;
  return Send("vol", std::to_string(volume));
}

bool AudioDriver::AGC(bool is_on) {
  Trace("AGC");
  if (Failed(!IsSupportAutoGainControl(), "!IsSupportAutoGainControl()")) return false;
  if (is_on == _agc) return true;
  _agc = is_on;
  return Send("agc", TextOf(is_on));
}

bool AudioDriver::Mute(bool is_muted) {
  Trace("Mute");
  if (Failed(!IsSupportMute(), "!IsSupportMute()")) return false;
  if (is_muted == _mute) return true;
  _mute = is_muted;
  // Unmuting does not restore the volume; the client sets it again.
  if (is_muted) _volume = 0;
  return Send("mute", TextOf(is_muted));
}

}  // namespace tessel::dualos
