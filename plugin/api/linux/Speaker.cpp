#include "Speaker.h"

#include "quill/Debug.h"

namespace tessel::dualos {

using quill::stream::kGreen;
using quill::stream::TraceIn;

bool Speaker::IsSupportVolumeControl() const {
  const void* face = static_cast<const dev::ISpeaker*>(this);
  TraceIn(kGreen, "(void*)(ISpeaker*)this=", face);
  TraceIn(kGreen, "_canVolume=", _canVolume ? "true" : "false");
  return _canVolume;
}

}  // namespace tessel::dualos
