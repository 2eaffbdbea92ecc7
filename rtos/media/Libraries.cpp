#include "Libraries.h"

#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace tessel::rtos {

void SilenceLibraries() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

void LibraryFree::operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
void LibraryFree::operator()(AVFrame* frame) const { av_frame_free(&frame); }
void LibraryFree::operator()(AVPacket* packet) const { av_packet_free(&packet); }

FramePtr MakeFrame() { return FramePtr(av_frame_alloc()); }
PacketPtr MakePacket() { return PacketPtr(av_packet_alloc()); }

}  // namespace tessel::rtos
