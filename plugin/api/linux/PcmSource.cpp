#include "PcmSource.h"

#include "quill/Debug.h"

#include "common/Layout.h"

namespace tessel::dualos {

using quill::stream::Failed;
using quill::stream::kGreen;
using quill::stream::kYellow;
using quill::stream::Trace;
using quill::stream::TraceIn;

PcmSource::PcmSource(bool pull) : StreamAppOutput(pull) { Trace("PcmSource"); }

PcmSource::~PcmSource() { Trace("~PcmSource"); }

void PcmSource::SetSampleRate(int samples_per_second) { _pcm.sampleRate = samples_per_second; }
void PcmSource::SetChannels(int channels) { _pcm.channels = channels; }
dev::IMicrophone* PcmSource::Microphone() { return _mic; }
PcmSource::PcmMediaInfo PcmSource::GetPcmMediaInfo() const { return _pcm; }

bool PcmSource::SelectMicrophone(const char* name) {
  TraceIn(kGreen, "", name);
  if (_mic != nullptr) {
    TraceIn(kYellow, "_mic,", "Microphone has be selected!");
    return true;
  }
  _mic = dev::IAudioDevice::Microphone(name);
  return !Failed(!_mic, "!_mic", "has no microphone:", name);
}

std::string PcmSource::AppStringCreate0() {
  Trace("");
  if (_mic == nullptr && Failed(!SelectMicrophone("dualos"), "!SelectMicrophone(\"dualos\")")) {
    return "";
  }
  std::string layout = Layout::Microphone("id=" + std::to_string(_mic->DeviceID()))
                           .PcmFilter(_pcm.sampleRate)
                           .Channels(_pcm.channels)
                           .ShmSink(_session_name);
  Trace("", layout);
  return layout;
}

bool PcmSource::CbOpen(quill::base::object* obj, quill::stream::IMedia* media) {
  if (Failed(!obj, "!obj")) return false;
  if (Failed(!media, "!media")) return false;
  Trace("", media->ToString());
  return StreamAppOutput::CbOpen(obj, media);
}

}  // namespace tessel::dualos
