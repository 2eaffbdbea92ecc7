// The table of the board's elements.
#include "AacEncoder.h"
#include "CameraSource.h"
#include "Element.h"
#include "FifoSink.h"
#include "FrameDroper.h"
#include "FrameTrigger.h"
#include "H264Encoder.h"
#include "H264VBrc.h"
#include "JpegEncoder.h"
#include "MicrophoneSource.h"
#include "PcmFilter.h"
#include "ShmSink.h"

namespace tessel::rtos {
namespace {

template <typename Class>
std::unique_ptr<Element> Make() {
  return std::make_unique<Class>();
}

constexpr ElementRow kElements[] = {
    {"pv-yuv-src-adv", &Make<CameraSource>},
    {"pv-pcm-src", &Make<MicrophoneSource>},
    {"PcmFilter", &Make<PcmFilter>},
    {"FrameTrigger", &Make<FrameTrigger>},
    {"FrameDroper", &Make<FrameDroper>},
    {"h264-encoder-dma", &Make<H264Encoder>, true, Colours::kVideo},
    {"jpeg-encoder-dma", &Make<JpegEncoder>, true, Colours::kJpeg},
    {"jpeg-encoder", &Make<JpegEncoder>, true, Colours::kJpeg},
    {"encoder-jpeg", &Make<JpegEncoder>, true, Colours::kJpeg},
    {"aac-encoder", &Make<AacEncoder>, true},
    {"H264VBrc", &Make<H264VBrc>},
    {"ShmSink", &Make<ShmSink>},
    {"FifoSink", &Make<FifoSink>},
};

}  // namespace

std::span<const ElementRow> BoardElements() { return kElements; }

}  // namespace tessel::rtos
