// The table of the board's elements.
#include "CameraSource.h"
#include "Element.h"
#include "FrameDroper.h"
#include "FrameTrigger.h"
#include "H264Encoder.h"
#include "H264VBrc.h"
#include "JpegEncoder.h"
#include "ShmSink.h"

namespace tessel::rtos {
namespace {

template <typename Class>
std::unique_ptr<Element> Make() {
  return std::make_unique<Class>();
}

constexpr ElementRow kElements[] = {
    {"pv-yuv-src-adv", &Make<CameraSource>, std::nullopt},
    {"FrameTrigger", &Make<FrameTrigger>, std::nullopt},
    {"FrameDroper", &Make<FrameDroper>, std::nullopt},
    {"h264-encoder-dma", &Make<H264Encoder>, Colours::kVideo},
    {"jpeg-encoder-dma", &Make<JpegEncoder>, Colours::kJpeg},
    {"jpeg-encoder", &Make<JpegEncoder>, Colours::kJpeg},
    {"H264VBrc", &Make<H264VBrc>, std::nullopt},
    {"ShmSink", &Make<ShmSink>, std::nullopt},
};

}  // namespace

std::span<const ElementRow> BoardElements() { return kElements; }

}  // namespace tessel::rtos
