#include "AacSource.h"

#include "quill/Debug.h"

#include "common/Layout.h"

namespace tessel::dualos {

using quill::stream::At;
using quill::stream::Failed;
using quill::stream::Trace;

AacSource::AacSource(bool pull) : PcmSource(pull) { Trace("AacSource"); }

void AacSource::SetProfile(const char* name) {
  if (name != nullptr) _profile = name;
}
void AacSource::SetTargetChannels(int channels) { _aac.channels = channels; }
void AacSource::SetBandWidth(int hertz) { _bandWidth = hertz; }
AacSource::AacMediaInfo AacSource::GetAacMediaInfo() const { return _aac; }
void AacSource::SetBitRate(int bits_per_second) { _bitRate = bits_per_second; }

void AacSource::SetSampleRate(int samples_per_second) {
  _aac.rate = samples_per_second;
  PcmSource::SetSampleRate(samples_per_second);
}

void AacSource::SetChannels(int channels) {
  _aac.channels = channels;
  PcmSource::SetChannels(channels);
}

std::string AacSource::AppStringCreate0() {
  if (_mic == nullptr && Failed(!SelectMicrophone("dualos"), "!SelectMicrophone(\"dualos\")")) {
    return "";
  }
  _mic->DeviceID();  // always called, although this chain does not name the microphone
  std::string layout = Layout::Microphone("")
                           .PcmFilter(_aac.rate)
                           .AacEncoder(_profile, _bitRate, _aac.channels, _bandWidth)
                           .ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

bool AacSource::CbOpen(quill::base::object* obj, quill::stream::IMedia* media) {
  if (Failed(!obj, "!obj")) return false;
  if (Failed(!media, "!media")) return false;
  if (Failed(!media->IsCodec("aac"), "!media->IsCodec(\"aac\")")) return false;
  Trace("", media->ToString());
  const auto get = [media](const char* key, std::int32_t& out, const At& text) {
    return !Failed(!media->GetIntT<int>(key, out), text);
  };
  if (!get("profile", _aac.profile, "!media->Get(\"profile\",_aac.profile)")) return false;
  if (!get("version", _aac.version, "!media->Get(\"version\",_aac.version)")) return false;
  if (!get("rateidx", _aac.rateidx, "!media->Get(\"rateidx\",_aac.rateidx)")) return false;
  if (!get("adtslen", _aac.adtsLength, "!media->Get(\"adtslen\",_aac.adtsLength)")) return false;
  if (!get("bitrate", _aac.bitrate, "!media->Get(\"bitrate\",_aac.bitrate)")) return false;
  // NOLINTNEXTLINE(bugprone-parent-virtual-call): PcmSource::CbOpen() would check and trace again
  return StreamAppOutput::CbOpen(obj, media);
}

}  // namespace tessel::dualos
