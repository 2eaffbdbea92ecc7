// The table of the board's elements.
#include "CameraSource.h"
#include "Element.h"
#include "H264Encoder.h"
#include "ShmSink.h"

namespace tessel::rtos {
namespace {

template <typename Class>
std::unique_ptr<Element> Make() {
  return std::make_unique<Class>();
}

constexpr ElementRow kElements[] = {
    {"pv-yuv-src-adv", &Make<CameraSource>, false},
    {"h264-encoder-dma", &Make<H264Encoder>, true},
    {"ShmSink", &Make<ShmSink>, false},
};

}  // namespace

std::span<const ElementRow> BoardElements() { return kElements; }

}  // namespace tessel::rtos
