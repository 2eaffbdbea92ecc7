#include "ElementTable.h"

#include "AacEncoder.h"
#include "CameraSource.h"
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

constexpr ControlWord kH264Words[] = {&VbrcBlock::bitrate_target, &VbrcBlock::bitrate_min,
                                      &VbrcBlock::bitrate_max,    &VbrcBlock::qp_min,
                                      &VbrcBlock::qp_max,         &VbrcBlock::keyframe_req};
constexpr ControlWord kTriggerWords[] = {&VbrcBlock::trigger_req};

constexpr ElementRow kElements[] = {
    {"pv-yuv-src-adv", &MakeElement<CameraSource>},
    {"pv-pcm-src", &MakeElement<MicrophoneSource>},
    {"PcmFilter", &MakeElement<PcmFilter>},
    {.name = "FrameTrigger", .make = &MakeElement<FrameTrigger>, .reads = kTriggerWords},
    {"FrameDroper", &MakeElement<FrameDroper>},
    {"h264-encoder-dma", &MakeElement<H264Encoder>, true, Colours::kVideo, kH264Words},
    {"jpeg-encoder-dma", &MakeElement<JpegEncoder>, true, Colours::kJpeg},
    {"jpeg-encoder", &MakeElement<JpegEncoder>, true, Colours::kJpeg},
    {"encoder-jpeg", &MakeElement<JpegEncoder>, true, Colours::kJpeg},
    {"aac-encoder", &MakeElement<AacEncoder>, true},
    {"H264VBrc", &MakeElement<H264VBrc>},
    {"ShmSink", &MakeElement<ShmSink>},
    {"FifoSink", &MakeElement<FifoSink>},
};

}  // namespace

std::span<const ElementRow> ElementTable() { return kElements; }

}  // namespace tessel::rtos
