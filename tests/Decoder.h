// Judges what an encoder delivers by decoding it with a library that is not ours.
#pragma once

#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Fixture.h"
#include "PatternMarks.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
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

// Plays a media file: `take` gets each picture and each piece of sound, and its time in seconds.
inline void PlayFile(const std::string& path,
                     const std::function<void(const AVFrame&, double time_s)>& take) {
  AVFormatContext* file = nullptr;
  if (avformat_open_input(&file, path.c_str(), nullptr, nullptr) < 0) return;
  avformat_find_stream_info(file, nullptr);
  std::vector<AVCodecContext*> codecs;
  for (unsigned i = 0; i < file->nb_streams; ++i) {
    const AVCodecParameters* coded = file->streams[i]->codecpar;
    codecs.push_back(avcodec_alloc_context3(avcodec_find_decoder(coded->codec_id)));
    avcodec_parameters_to_context(codecs[i], coded);
    codecs[i]->pkt_timebase = file->streams[i]->time_base;
    EXPECT_EQ(avcodec_open2(codecs[i], nullptr, nullptr), 0);
  }
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  const auto decode = [&](AVCodecContext* codec, const AVPacket* coded) {
    EXPECT_EQ(avcodec_send_packet(codec, coded), 0);
    while (avcodec_receive_frame(codec, frame) >= 0) {
      const bool has_time = frame->pts != AV_NOPTS_VALUE;
      take(*frame, has_time ? static_cast<double>(frame->pts) * av_q2d(codec->pkt_timebase) : 0);
    }
  };
  while (av_read_frame(file, packet) >= 0) {
    decode(codecs[static_cast<std::size_t>(packet->stream_index)], packet);
    av_packet_unref(packet);
  }
  for (AVCodecContext*& codec : codecs) {
    decode(codec, nullptr);  // what it holds back
    avcodec_free_context(&codec);
  }
  av_frame_free(&frame);
  av_packet_free(&packet);
  avformat_close_input(&file);
}

}  // namespace tessel::tests
