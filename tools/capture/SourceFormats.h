// What the sources of each kind deliver, read through their interfaces: all of MediaFormat except
// the kind and the frame rate. REQUIRES: the source is open where `header` matters.
#pragma once

#include "CaptureSource.h"

namespace tessel::tool {

MediaFormat ReadH264(const CaptureSource& source);
MediaFormat ReadJpeg(const CaptureSource& source);
MediaFormat ReadRaw(const CaptureSource& source);
MediaFormat ReadPcm(const CaptureSource& source);
MediaFormat ReadAac(const CaptureSource& source);

}  // namespace tessel::tool
