// Sound as a user of `tessel` captures it: files of each kind, picture and sound in step, the
// board's devices. Files are judged by decoding them with a library that is not ours.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <regex>
#include <vector>

#include "Fixture.h"
#include "TestPattern.h"
#include "ToolTest.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace tessel::tests {
namespace {

constexpr int kRate = 48000;  // of every decoded sound here

// What a player gets out of a file.
struct Played {
  std::vector<double> times_s;  // of the pictures
  double lit_s = -1;            // when the lamp goes on for the first time
  bool was_lit = true;          // in the last picture
  double sound_s = -1;          // when the sound begins
  std::vector<float> sound;     // of the first channel

  double SoundEnd() const { return sound_s + static_cast<double>(sound.size()) / kRate; }
  // When the test tone's beep begins for the first time: by the strength of its frequency in each
  // millisecond.
  double BeepStart() const {
    constexpr std::size_t kSpan = kRate / 1000;
    const auto strength = [this](std::size_t from) {
      std::pair<double, double> sum;
      for (std::size_t i = from; i < from + kSpan; ++i) {
        const double angle = 2 * M_PI * 3000 * static_cast<double>(i) / kRate;
        sum.first += sound[i] * std::cos(angle);
        sum.second += sound[i] * std::sin(angle);
      }
      return std::hypot(sum.first, sum.second) * 2 / kSpan;
    };
    int silent = 0;  // milliseconds: one that was there before the file began has no start
    for (std::size_t i = 0; i + kSpan <= sound.size(); i += kSpan) {
      const bool is_loud = strength(i) > 0.125;
      if (is_loud && silent > 50) return sound_s + static_cast<double>(i) / kRate;
      silent = is_loud ? 0 : silent + 1;
    }
    return -1;
  }
};

double Loudness(const std::vector<float>& sound, std::size_t from, std::size_t to) {
  double squares = 0;
  for (std::size_t i = from; i < std::min(to, sound.size()); ++i) squares += sound[i] * sound[i];
  return std::sqrt(squares / static_cast<double>(to - from));
}

class SoundTool : public ToolTest {
 protected:
  Played Play(const std::string& name) const {
    Played played;
    AVFormatContext* file = nullptr;
    if (avformat_open_input(&file, (_folder + name).c_str(), nullptr, nullptr) < 0) return played;
    avformat_find_stream_info(file, nullptr);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    std::vector<AVCodecContext*> codecs;
    for (unsigned i = 0; i < file->nb_streams; ++i) {
      const AVStream& stream = *file->streams[i];
      const AVCodec* decoder = avcodec_find_decoder(stream.codecpar->codec_id);
      AVCodecContext* codec = codecs.emplace_back(avcodec_alloc_context3(decoder));
      avcodec_parameters_to_context(codec, stream.codecpar);
      codec->pkt_timebase = stream.time_base;
      EXPECT_EQ(avcodec_open2(codec, nullptr, nullptr), 0);
    }
    const auto take = [&](AVCodecContext* codec) {
      while (avcodec_receive_frame(codec, frame) >= 0) {
        const bool has_time = frame->pts != AV_NOPTS_VALUE;
        const double time_s =
            has_time ? static_cast<double>(frame->pts) * av_q2d(codec->pkt_timebase) : 0;
        codec->codec_type == AVMEDIA_TYPE_VIDEO ? See(*frame, time_s, played)
                                                : Hear(*frame, time_s, played);
      }
    };
    while (av_read_frame(file, packet) >= 0) {
      AVCodecContext* codec = codecs[static_cast<std::size_t>(packet->stream_index)];
      EXPECT_EQ(avcodec_send_packet(codec, packet), 0);
      av_packet_unref(packet);
      take(codec);
    }
    for (AVCodecContext*& codec : codecs) {
      avcodec_send_packet(codec, nullptr);
      take(codec);
      avcodec_free_context(&codec);
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avformat_close_input(&file);
    return played;
  }

 private:
  static void See(const AVFrame& picture, double time_s, Played& played) {
    const bool is_lit =
        rtos::IsLampLit(picture.data[0], picture.linesize[0], picture.width, picture.height);
    if (is_lit && !played.was_lit && played.lit_s < 0) played.lit_s = time_s;
    played.was_lit = is_lit;
    played.times_s.push_back(time_s);
  }
  static void Hear(const AVFrame& frame, double time_s, Played& played) {
    EXPECT_EQ(frame.sample_rate, kRate);
    if (played.sound.empty()) played.sound_s = time_s;
    const auto step = static_cast<std::size_t>(frame.ch_layout.nb_channels);
    for (std::size_t i = 0; i < static_cast<std::size_t>(frame.nb_samples); ++i) {
      played.sound.push_back(
          frame.format == AV_SAMPLE_FMT_S16
              ? static_cast<float>(reinterpret_cast<const std::int16_t*>(frame.data[0])[i * step]) /
                    32768
              : reinterpret_cast<const float*>(frame.data[0])[i]);
    }
  }
};

TEST_F(SoundTool, WritesEverySampleIntoEachContainer) {
  const struct {
    std::string source;
    std::string name;
    int first;  // sample that is of the tone: what is declared as priming is not played
    int most;   // samples more than were captured
  } rows[] = {
      {"pcm --rate 48000", "a.wav", 0, 0},
      {"pcm-push --rate 48000 --channels 2", "a.wav", 0, 0},
      {"pcm --rate 48000 --channels 2", "a.mkv", 0, 0},
      {"aac", "a.m4a", 0, 1023},
      {"aac-push --bitrate 96k --channels 1", "a.mp4", 0, 1023},
      {"aac", "a.mkv", 1024, 2047},
      {"aac --profile LC --bandwidth 8000", "a.aac", 1024, 2047},
      {"aac", "-", 1024, 2047},
  };
  const std::regex summary(
      ".*: 48000 samples, 1\\.00 s, 48000 Hz, .* RMS -1[45]\\.\\d(/-1[45]\\.\\d)? dBFS, 0 dropped\n");
  for (const auto& [source, name, first, most] : rows) {
    const std::string words = std::string("capture ")
                                  .append(source)
                                  .append(" --mic tone:1000 --seconds 1 --unpaced -o " + name);
    ASSERT_EQ(Run(words), 0) << words << Text("err");
    EXPECT_TRUE(std::regex_match(Text("err"), summary)) << Text("err");
    const std::vector<float> sound = Play(name == "-" ? "out" : name).sound;
    ASSERT_GE(sound.size(), std::size_t{kRate}) << words;
    EXPECT_LE(sound.size(), static_cast<std::size_t>(kRate + most)) << words;
    int crossings = 0;
    const std::size_t begin = static_cast<std::size_t>(first);
    for (std::size_t i = begin + 1; i < begin + kRate; ++i) {
      crossings += (i < sound.size() && (sound[i] < 0) != (sound[i - 1] < 0)) ? 1 : 0;
    }
    EXPECT_NEAR(crossings, 2000, 10) << words;
    const double middle = Loudness(sound, 24000, 28800);
    EXPECT_NEAR(middle, 0.25 / M_SQRT2, 0.02) << words;
    EXPECT_NEAR(Loudness(sound, begin + 96, begin + 480), middle, 0.03) << words;
  }
  EXPECT_EQ(Run("capture pcm --unpaced --seconds 1.99 --channels 2 -q -o -"), 0);
  EXPECT_EQ(Text("out").size(), std::size_t{31840} * 4);
}

TEST_F(SoundTool, KeepsPictureAndSoundInStep) {
  const std::pair<std::string, std::string> rows[] = {
      {"h264 aac", "a.mp4"},
      {"h264-push pcm --rate 48000", "a.mkv"},
      {"jpeg aac-push", "b.mkv"},
      {"pcm-push jpeg-push --rate 48000", "c.mkv"},
  };
  for (const auto& [classes, name] : rows) {
    const std::string words =
        std::string("capture ")
            .append(classes)
            .append(" --width 320 --height 240 --fps 100 --seconds 1.6 -o " + name);
    ASSERT_EQ(Run(words), 0) << words << Text("err");
    const Played played = Play(name);
    ASSERT_FALSE(played.times_s.empty()) << words;
    EXPECT_NEAR(played.times_s.front(), played.sound_s, 0.025) << words;
    EXPECT_NEAR(played.times_s.back() + 0.01, 1.6, 0.05) << words;
    EXPECT_NEAR(played.SoundEnd(), 1.6, 0.05) << words;
    // The lamp is lit from the picture nearest to the begin of each second's beep on.
    ASSERT_TRUE(played.lit_s >= 0 && played.BeepStart() >= 0) << words;
    EXPECT_NEAR(std::remainder(played.lit_s - played.BeepStart(), 1.0), 0, 0.009) << words;
  }
}

TEST_F(SoundTool, EndsBothWhereTheFirstOneEnds) {
  ASSERT_EQ(Run("capture pcm --rate 48000 --unpaced --seconds 0.5 -o half.wav"), 0);
  const struct {
    std::string words;
    double end_s;
  } rows[] = {
      {"h264 aac --mic half.wav --once --unpaced", 0.5},
      {"h264-push pcm-push --rate 48000 --mic half.wav --once", 0.5},
      {"jpeg aac-push --frames 30 --unpaced", 1},
      {"jpeg-trigger pcm --rate 48000 --trigger-every 100 --frames 6", 0.5},
  };
  for (const auto& [words, end_s] : rows) {
    ASSERT_EQ(Run("capture " + words + " --width 160 --height 120 -o a.mkv"), 0) << Text("err");
    const Played played = Play("a.mkv");
    ASSERT_FALSE(played.times_s.empty()) << words;
    EXPECT_NEAR(played.times_s.back(), end_s, 0.08) << words;
    EXPECT_NEAR(played.SoundEnd(), end_s, 0.1) << words;
  }
}

TEST_F(SoundTool, TellsTheCulprit) {
  const struct {
    std::string words;
    int exit_code;
    std::string text;
  } rows[] = {
      {"list", 0, "ApiAacSource-dualos-pull\tpull\tAAC sound\taac\n"},
      {"list", 0, "Speaker-ApiSpeaker-dualos\t-\tspeaker\tspeaker\n"},
      {"inspect pcm", 0, "{pv-pcm-src:id=1+PcmFilter:rate=16000,ch=1+ShmSink:"},
      {"inspect microphone", 0, "48000 Hz, 2 channels, 16 bits, volume"},
      {"capture h264 jpeg -o a.mp4", 2, "h264 and jpeg are both video; one of each"},
      {"capture pcm -o a.mp4", 2, "the PCM source goes into .mkv, .wav or .pcm"},
      {"capture h264 pcm -o a.mp4", 2, "with the PCM source goes into .mkv\n"},
      {"capture yuv aac -o a.mkv", 2, "the raw source with the AAC source goes into no file"},
      {"capture pcm -o a.wav --bitrate 9k", 2, "the PCM source has no bit rate to hold"},
      {"capture aac -o a.aac --set bitrate=9k@4", 2, "keeps the value that it begins with"},
      {"capture pcm -o a.wav --profile LC", 2, "--profile: the PCM source has no profile"},
      {"capture pcm -o a.wav --gop 4", 2, "--gop: the PCM source has no pictures"},
      {"capture pcm -o a.wav --sensor x", 2, "--sensor: the PCM source has no pictures"},
      {"capture h264 -o a.mp4 --mic x", 2, "--mic: an H.264 source of constant rate has no sound"},
      {"capture h264 -o a.mp4 --rate 8000", 2, "--rate: an H.264 source"},
      {"capture pcm -o a.wav --mic none.wav", 1, "none.wav\": No such file or directory"},
      {"capture aac -o a.aac --profile HE", 1, "element \"aac-encoder\": profile=HE"},
      {"capture h264-trigger aac -o a.mp4 --trigger-every 9 --unpaced", 2, "is captured live"},
      {"devices --board none", 1, "no microphone: "},
      {"mute mic on", 1, "no real-time side runs here, and none is named to look at"},
      {"mute mic maybe", 2, "\"maybe\" is neither on nor off"},
      {"volume horn 3", 2, "no device \"horn\"; there are mic and speaker"},
  };
  for (const auto& [words, exit_code, text] : rows) {
    EXPECT_EQ(Run(words), exit_code) << words;
    const std::string said = Text("out") + Text("err");
    EXPECT_NE(said.find(text), said.npos) << words << "\n" << said;
    EXPECT_FALSE(std::filesystem::exists(_folder + "a.mp4")) << words;
  }
}

TEST_F(SoundTool, SteersTheDevicesOfARealTimeSideThatRuns) {
  Begin(TESSEL_RTOS " --listen board");
  ASSERT_TRUE(Eventually([this] { return std::filesystem::exists(_folder + "board"); }));
  const struct {
    std::string words;
    int exit_code;
    std::string text;
  } rows[] = {
      {"volume mic 40", 0, "microphone: 48000 Hz, 2 channels, 16 bits, volume 40 of 0..100, "},
      {"volume microphone 400", 0, "volume 400 is outside 0..100: 100 is set\n"},
      {"agc mic on", 0, "AGC on"},
      {"agc speaker on", 1, "the speaker has no automatic gain control"},
      {"mute mic on", 0, "volume 0 of 0..100, AGC on, mute on"},
      {"devices --json", 0,
       "\"volume\":{\"value\":0,\"min\":0,\"max\":100},\"agc\":true,\"mute\":true"},
  };
  for (const auto& [words, exit_code, text] : rows) {
    EXPECT_EQ(Run(words + " --rtos board"), exit_code) << words;
    const std::string said = Text("out") + Text("err");
    EXPECT_NE(said.find(text), said.npos) << words << "\n" << said;
  }
}

}  // namespace
}  // namespace tessel::tests
