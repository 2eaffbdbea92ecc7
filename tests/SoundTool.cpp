// Sound as a user of `tessel` captures it: files of each kind, picture and sound in step, the
// board's devices. Another library decodes the files.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <vector>

#include "Decoder.h"
#include "FitTone.h"
#include "ToolTest.h"

namespace tessel::tests {
namespace {

constexpr int kRate = 48000;  // of every decoded sound here

// What a player gets out of a file.
struct Played {
  std::vector<double> times_s;  // of the pictures
  double lit_s = -1;            // when the lamp goes on for the first time
  double unlit_s = -1;          // of the picture before
  bool was_lit = true;          // in the last picture
  double sound_s = -1;          // when the sound begins
  std::vector<float> sound;     // of the first channel

  double SoundEnd() const { return sound_s + static_cast<double>(sound.size()) / kRate; }
  // When the test tone's beep begins for the first time: by the strength of its frequency in each
  // millisecond.
  double BeepStart() const {
    constexpr std::size_t kSpan = kRate / 1000;
    int silent = 0;  // milliseconds; the start of a beep that the file begins with is not known
    for (std::size_t i = 0; i + kSpan <= sound.size(); i += kSpan) {
      const bool is_loud = std::abs(FitTone(sound, 3000, kRate, i, i + kSpan)) > 0.125;
      if (is_loud && silent > 50) return sound_s + static_cast<double>(i) / kRate;
      silent = is_loud ? 0 : silent + 1;
    }
    return -1;
  }
};

class SoundTool : public ToolTest {
 protected:
  Played Play(const std::string& name) const {
    Played played;
    PlayFile(_folder + name, [&played](const AVFrame& frame, double time_s) {
      frame.width > 0 ? See(frame, time_s, played) : Hear(frame, time_s, played);
    });
    return played;
  }

 private:
  static void See(const AVFrame& picture, double time_s, Played& played) {
    const bool is_lit =
        rtos::IsLampLit(picture.data[0], picture.linesize[0], picture.width, picture.height);
    if (is_lit && !played.was_lit && played.lit_s < 0) {
      played.lit_s = time_s;
      played.unlit_s = played.times_s.back();
    }
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
    const char* source;
    const char* name;
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
  const char* summary =
      ".*: 48000 samples, 1\\.00 s, 48000 Hz, .* RMS -1[45]\\.\\d(/-1[45]\\.\\d)? dBFS, 0 dropped\n";
  for (const auto& [source, name, first, most] : rows) {
    const std::string words = std::string(source) + " --seconds 1 --unpaced -o " + name;
    ASSERT_EQ(Run("capture --mic tone:1000 " + words), 0) << words << Text("err");
    EXPECT_FALSE(Match(Text("err"), summary).empty()) << Text("err");
    const std::vector<float> sound = Play(*name == '-' ? "out" : name).sound;
    ASSERT_GE(sound.size(), std::size_t{kRate}) << words;
    EXPECT_LE(sound.size(), static_cast<std::size_t>(kRate + most)) << words;
    const auto begin = static_cast<std::size_t>(first);
    const std::size_t end = std::min(begin + kRate, sound.size());
    EXPECT_NEAR(std::abs(FitTone(sound, 1000, kRate, begin, end)), 0.25, 0.0003) << words;
    EXPECT_NEAR(std::abs(FitTone(sound, 1000, kRate, begin + 96, begin + 480)), 0.25, 0.01);
  }
  EXPECT_EQ(Run("capture pcm --unpaced --seconds 1.99 --channels 2 -q -o -"), 0);
  EXPECT_EQ(Text("out").size(), std::size_t{31840} * 4);
}

TEST_F(SoundTool, KeepsPictureAndSoundInStep) {
  for (const std::string words :
       {"h264 aac -o a.mp4", "h264-push pcm --rate 48000 -o a.mkv", "jpeg aac-push -o b.mkv",
        "pcm-push jpeg-push --rate 48000 -o c.mkv"}) {
    const std::string command = "capture --width 320 --height 240 --fps 100 --seconds 1.6 ";
    ASSERT_EQ(Run(command + words), 0) << words << Text("err");
    const Played played = Play(words.substr(words.size() - 5));
    ASSERT_FALSE(played.times_s.empty()) << words;
    EXPECT_NEAR(std::min(played.times_s.front(), played.sound_s), 0, 0.025) << words;
    EXPECT_NEAR(played.times_s.back() + 0.01, 1.6, 0.6) << words;  // the last ones may be late
    EXPECT_NEAR(played.SoundEnd(), 1.6, 0.05) << words;
    // The lamp is lit from half a frame time before each second's beep on.
    const double beep_s = played.BeepStart();
    ASSERT_TRUE(played.lit_s >= 0 && beep_s >= 0) << words;
    EXPECT_GT(std::remainder(played.lit_s - beep_s, 1.0), -0.008) << words;
    EXPECT_LT(std::remainder(played.unlit_s - beep_s, 1.0), -0.002) << words;
  }
}

TEST_F(SoundTool, BeginsTheFileWithTheFirstCaptureOfEither) {
  Begin(std::string(std::filesystem::read_symlink("/proc/self/exe")) + " --listen=board");
  WaitForFile("board");
  EXPECT_EQ(Run("capture h264 pcm --rtos board --seconds 1 -o a.mkv"),
            0);  // sound is 0.3 s earlier
  EXPECT_NE(Text("err").find(": 16000 samples, 1.00 s, "), std::string::npos) << Text("err");
}

TEST_F(SoundTool, EndsPictureAndSoundTogether) {
  ASSERT_EQ(Run("capture pcm --rate 48000 --unpaced --seconds 0.5 -o half.wav"), 0);
  const struct {
    const char* words;
    bool is_sound;  // whether that is what ends first
    double length_s;
  } rows[] = {
      {"h264 aac --mic half.wav --once --unpaced", true, 0.5},
      {"h264-push pcm-push --rate 48000 --mic half.wav --once", true, 0.5},
      {"jpeg aac-push --frames 30 --unpaced", false, 1},
      {"jpeg-trigger pcm --rate 48000 --trigger-every 100 --frames 6", false, 0.5},
  };
  for (const auto& [words, is_sound, length_s] : rows) {
    const std::string size = " --width 160 --height 120 -o a.mkv";
    ASSERT_EQ(Run(std::string("capture ") + words + size), 0) << words << Text("err");
    const Played played = Play("a.mkv");
    ASSERT_FALSE(played.times_s.empty()) << words;
    const double picture_s = played.times_s.back() - played.times_s.front();
    const double sound_s = played.SoundEnd() - played.sound_s;
    EXPECT_NEAR(is_sound ? sound_s : picture_s, length_s, 0.3) << words;
    EXPECT_NEAR(played.times_s.back(), played.SoundEnd(), 0.1) << words;
  }
}

// Either begins half a second later than the other in the film.
TEST_F(SoundTool, KeepsAFilmInStep) {
  const std::string capture = "capture h264 pcm --rate 48000 --width 320 --height 240 --unpaced ";
  ASSERT_EQ(Run(capture + "--seconds 2 -o film.mkv"), 0);
  const std::string cut = "cd " + _folder + "; ffmpeg -v error -i film.mkv -itsoffset ";
  for (const char* late : {"0:v -map 1:a", "1:v -map 0:a"}) {
    ASSERT_EQ(std::system((cut + "0.5 -i film.mkv -c copy -y -map " + late + " late.mkv").c_str()),
              0);
    ASSERT_EQ(Run(capture + "--sensor late.mkv --mic late.mkv --once -o a.mkv"), 0);
    const Played film = Play("late.mkv");
    const Played copy = Play("a.mkv");
    const double before_s = film.lit_s - film.BeepStart();
    const double after_s = copy.lit_s - copy.BeepStart();
    // The capture starts one after the other, which takes some time.
    EXPECT_NEAR(std::remainder(after_s - before_s, 1.0), 0, 0.2) << late;
  }
}

TEST_F(SoundTool, NamesWhatItRefusesAndWhy) {
  Expect({
      {"list", 0, "ApiAacSource-dualos-pull\tpull\tAAC sound\taac\n"},
      {"list", 0, "Speaker-ApiSpeaker-dualos\t-\tspeaker\tspeaker\n"},
      {"inspect pcm", 0, "{pv-pcm-src:id=1+PcmFilter:rate=16000,ch=1+ShmSink:"},
      {"inspect microphone", 0, "48000 Hz, 2 channels, 16 bits, volume"},
      {"capture h264 jpeg", 2, "h264 and jpeg are both video; one of each"},
      {"capture pcm", 2, "the PCM source goes into .mkv, .wav or .pcm"},
      {"capture h264 pcm", 2, "with the PCM source goes into .mkv\n"},
      {"capture yuv aac -o a.mkv", 2, "the raw source with the AAC source goes into no file"},
      {"capture pcm -o a.wav --bitrate 9k", 2, "the PCM source has no bit rate to hold"},
      {"capture aac -o a.aac --set bitrate=9k@4", 2, "keeps the value that it begins with"},
      {"capture pcm -o a.wav --profile LC", 2, "--profile: the PCM source has no profile"},
      {"capture pcm -o a.wav --sensor x", 2, "--sensor: the PCM source has no pictures"},
      {"capture h264 --mic x", 2, "--mic: an H.264 source of constant rate has no sound"},
      {"capture pcm -o a.wav --mic none.wav", 1, "none.wav\": No such file or directory"},
      {"capture aac -o a.aac --profile HE", 1, "element \"aac-encoder\": profile=HE"},
      {"capture aac -o a.aac --rate 44000", 1, "rate=44000 of the sound in front is none of"},
      {"capture aac -o a.aac --bandwidth 24001", 1, "bw=24001 outside 0..24000"},
      {"capture aac -o a.aac --channels 3", 1, "ch=3 outside 1..2"},
      {"capture pcm -o a.wav --rate 7999", 1, "rate=7999 outside 8000..48000"},
      {"capture h264-trigger aac --trigger-every 9 --unpaced", 2, "is captured live"},
      {"devices --board none", 1, "no microphone: "},
      {"mute mic on", 1, "no real-time side runs here, and none is named to look at"},
      {"mute mic maybe", 2, "\"maybe\" is neither on nor off"},
      {"volume horn 3", 2, "no device \"horn\"; there are mic and speaker"},
  });
}

TEST_F(SoundTool, ControlsTheDevicesOfARunningRealTimeSide) {
  Begin(TESSEL_RTOS " --listen board");
  WaitForFile("board");
  Expect(
      {
          {"volume mic 40", 0, "microphone: 48000 Hz, 2 channels, 16 bits, volume 40 of 0..100, "},
          {"volume microphone 400", 0, "volume 400 is outside 0..100: 100 is set\n"},
          {"agc mic on", 0, "AGC on"},
          {"devices --board none", 2, "--board: the real-time side at board has its own devices"},
          {"agc speaker on", 1, "the speaker has no automatic gain control"},
          {"mute mic on", 0, "volume 0 of 0..100, AGC on, mute on"},
          {"devices --json", 0,
           "\"volume\":{\"value\":0,\"min\":0,\"max\":100},\"agc\":true,\"mute\":true"},
      },
      " --rtos board");
}

}  // namespace
}  // namespace tessel::tests
