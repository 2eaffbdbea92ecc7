// Judges what an encoder delivers by decoding it with a library that is not ours.
#pragma once

#include <cstring>
#include <optional>

#include "Fixture.h"
#include "TestPattern.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace tessel::tests {

// Decodes one frame after the other. One thread.
struct Decoder {
  explicit Decoder(AVCodecID id) : codec(avcodec_alloc_context3(avcodec_find_decoder(id))) {
    av_log_set_callback([](void*, int level, auto...) { complaints += level <= AV_LOG_ERROR; });
    codec->thread_count = 1;  // no picture is held back
    codec->export_side_data = AV_CODEC_EXPORT_DATA_VIDEO_ENC_PARAMS;
    EXPECT_EQ(avcodec_open2(codec, nullptr, nullptr), 0);
  }
  ~Decoder() {
    avcodec_free_context(&codec);
    av_packet_free(&packet);
    av_frame_free(&picture);
  }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Into `picture`. False unless it comes at once and without a complaint.
  bool Decode(const frame_t& frame) {
    complaints = 0;
    EXPECT_EQ(av_new_packet(packet, static_cast<int>(frame.size)), 0);
    std::memcpy(packet->data, frame.data, frame.size);
    const bool is_sent = avcodec_send_packet(codec, packet) == 0;
    av_packet_unref(packet);
    return is_sent && avcodec_receive_frame(codec, picture) == 0 && complaints == 0;
  }
  // What the test pattern shows in `picture`.
  std::optional<std::uint32_t> Number() const {
    std::uint32_t number = 0;
    const bool is_read = rtos::ReadFrameNumber(picture->data[0], picture->linesize[0],
                                               picture->width, picture->height, number);
    return is_read ? std::optional(number) : std::nullopt;
  }

  AVCodecContext* codec;
  AVPacket* packet = av_packet_alloc();
  AVFrame* picture = av_frame_alloc();
  inline static int complaints = 0;  // of the library, which conceals what it can
};

}  // namespace tessel::tests
