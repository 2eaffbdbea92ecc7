// Sound from the board's microphone to the client, as samples and as AAC. The tests look for the
// tone or the speech that went in; another library decodes AAC.
#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>

#include "AacSource.h"
#include "Decoder.h"
#include "FitTone.h"
#include "Fixture.h"
#include "quill/IClass.h"
#include "tessel/IAacSource.h"

namespace tessel::tests {
namespace {

using api::streaming::IAacSource;
using api::streaming::IPcmSource;

constexpr char kPcm[] = "ApiPcmSource-dualos-pull";
constexpr char kAac[] = "ApiAacSource-dualos-pull";
constexpr char kSpeech[] = "/usr/share/sounds/alsa/Front_Center.wav";

// Samples of full scale 1, a vector a channel.
struct Sound {
  int rate = 0;
  std::vector<std::vector<double>> channels;
  std::int64_t first_ns = 0;  // time stamp of the first frame
  std::int64_t last_ns = 0;   // of the last frame, and the samples in front of it
  std::size_t before_last = 0;
  std::size_t bytes = 0;

  std::size_t Length() const { return channels.empty() ? 0 : channels[0].size(); }
  // How far the last time stamp is from what the samples say.
  double Drift_ns() const {
    return static_cast<double>(last_ns - first_ns) - static_cast<double>(before_last) * 1e9 / rate;
  }
};

class SoundSources : public StreamTest {
 protected:
  SoundSources() {
    Use([](auto& options) { options.paced = false; });
  }

  ~SoundSources() override { std::filesystem::remove(_path); }
  // Makes the WAV file `_path` by a filter of ffmpeg.
  void MakeSound(const std::string& filter) const {
    const std::string command = "ffmpeg -v error -y -f lavfi -i " + filter + " " + _path;
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  // Opens and starts `source` and takes `seconds` of it, or all there is; none behind a failure.
  static Sound Capture(IPcmSource& source, int rate, int channels, double seconds = 1e9) {
    Sound sound;
    sound.rate = rate;
    sound.channels.resize(static_cast<std::size_t>(channels));
    EXPECT_TRUE(source.Open() && source.Start());
    const bool is_aac = dynamic_cast<IAacSource*>(&source) != nullptr;
    Decoder decoder(AV_CODEC_ID_AAC);
    Frame frame;
    for (std::uint32_t n = 0; static_cast<double>(sound.Length()) < seconds * rate; ++n) {
      if (!source.PullFrame(frame, true)) break;
      EXPECT_EQ(frame->seq, n);
      EXPECT_TRUE(frame->isKey);
      if (n == 0) sound.first_ns = frame->timestamp;
      sound.last_ns = frame->timestamp;
      sound.before_last = sound.Length();
      sound.bytes += frame->size;
      is_aac ? Append(sound, decoder, *frame) : Append(sound, *frame);
      if (HasFailure()) break;  // what cannot be decoded adds nothing
    }
    EXPECT_TRUE(source.Close());
    return sound;
  }
  static void Append(Sound& sound, const frame_t& frame) {
    const std::span samples(reinterpret_cast<const std::int16_t*>(frame.data), frame.size / 2);
    for (std::size_t i = 0; i < samples.size(); ++i) {
      sound.channels[i % sound.channels.size()].push_back(samples[i] / 32768.0);
    }
  }
  static void Append(Sound& sound, Decoder& decoder, const frame_t& frame) {
    ASSERT_TRUE(decoder.Decode(frame));
    const AVFrame& made = *decoder.picture;
    ASSERT_EQ(made.sample_rate, sound.rate);
    ASSERT_EQ(static_cast<std::size_t>(made.ch_layout.nb_channels), sound.channels.size());
    for (std::size_t channel = 0; channel < sound.channels.size(); ++channel) {
      const auto* samples = reinterpret_cast<const float*>(made.extended_data[channel]);
      auto& into = sound.channels[channel];
      into.insert(into.end(), samples, samples + made.nb_samples);
    }
  }

  const std::string _path = ::testing::TempDir() + std::to_string(getpid()) + ".wav";
};

TEST_F(SoundSources, ShowDefaultsAndWhatWasSetInTheirMediaInfo) {
  const auto aac = quill::host::Create<IAacSource>(kAac);
  aac->SetBitRate(96);  // is told once it has been announced
  const auto info = aac->GetPcmMediaInfo();
  EXPECT_EQ((std::vector{info.sampleRate, info.channels, info.format, info.bitsPerSample}),
            (std::vector{16000, 1, 1, 16}));
  const auto coded = aac->GetAacMediaInfo();
  EXPECT_EQ((std::vector{coded.rate, coded.channels, int{coded.adts}, coded.adtsLength,
                         coded.profile, coded.version, coded.rateidx, coded.bitrate}),
            (std::vector{48000, 2, 1, 7, 0, 0, 0, 0}));
  aac->SetSampleRate(8000);
  aac->SetChannels(3);
  aac->SetTargetChannels(1);  // of the encoder alone
  EXPECT_EQ((std::vector{aac->GetPcmMediaInfo().sampleRate, aac->GetPcmMediaInfo().channels,
                         aac->GetAacMediaInfo().rate, aac->GetAacMediaInfo().channels}),
            (std::vector{8000, 3, 8000, 1}));
}

TEST_F(SoundSources, KeepTheMicrophoneThatWasSelectedFirst) {
  const auto source = quill::host::Create<IPcmSource>(kPcm);
  EXPECT_FALSE(source->SelectMicrophone("nobody"));
  EXPECT_EQ(source->Microphone(), nullptr);
  EXPECT_EQ(LogLines().back(),
            "plugin/api/linux/PcmSource.cpp/#/SelectMicrophone:\t!_mic,has no microphone:nobody");
  EXPECT_TRUE(source->SelectMicrophone("dualos"));
  EXPECT_TRUE(source->SelectMicrophone("nobody"));
  EXPECT_EQ(source->Microphone(), dev::IAudioDevice::Microphone("dualos"));
  const Lines trace = ColouredLines(quill::stream::kTrace);
  ASSERT_GE(trace.size(), 2U);
  const std::string place = "mplugin/api/linux/PcmSource.cpp/#/SelectMicrophone:\t";
  EXPECT_EQ(trace[trace.size() - 2], "\033[32" + place + "nobody\n\033[0m");  // green
  EXPECT_EQ(trace.back(), "\033[33" + place + "_mic,Microphone has be selected!\n\033[0m");
}

// A client's class may choose the microphone of its source, and find none.
template <typename Source>
struct Deaf : Source {
  Deaf() : Source(true) {}
  bool SelectMicrophone(const char*) override { return false; }
};

template <typename Source>
void ExpectDeafness(const char* name) {
  quill::base::TClass<>::Enter<Deaf<Source>>(name);
  const auto made = quill::host::Create<Deaf<Source>>(name);
  ASSERT_TRUE(made);
  const std::string place = std::string("plugin/api/linux/") + name + "Source.cpp/#/";
  LogLines();
  EXPECT_EQ(made->AppStringCreate0(), "");
  EXPECT_FALSE(made->CbOpen(nullptr, nullptr) || made->CbOpen(made.Object(), nullptr));
  EXPECT_EQ(LogLines(), (Lines{place + "AppStringCreate0:\t!SelectMicrophone(\"dualos\")",
                               place + "CbOpen:\t!obj", place + "CbOpen:\t!media"}));
  EXPECT_FALSE(made->Open()) << "there is no chain to ask for";
}

TEST_F(SoundSources, DoNotOpenWithoutAMicrophone) {
  ExpectDeafness<dualos::PcmSource>("Pcm");
  ExpectDeafness<dualos::AacSource>("Aac");
}

// Where a sample is lost or doubled the phase of the tone jumps: by 0.13 at 48 kHz.
TEST_F(SoundSources, DeliverATonesPitchAtEachRateWithoutALostSample) {
  Use([](auto& options) { options.mic = "tone"; });
  for (const auto& [rate, channels] :
       {std::pair(48000, 1), {48000, 2}, {44100, 1}, {32000, 2}, {16000, 1}, {8000, 2}}) {
    const auto source = quill::host::Create<IPcmSource>(kPcm);
    source->SetSampleRate(rate);
    source->SetChannels(channels);
    const Sound sound = Capture(*source, rate, channels, 10);
    ASSERT_GE(sound.Length(), static_cast<std::size_t>(10 * rate));
    EXPECT_NEAR(sound.Drift_ns(), 0, 1e9 / 8000) << rate;
    const std::size_t window = static_cast<std::size_t>(rate) / 10;
    for (std::size_t channel = 0; channel < sound.channels.size(); ++channel) {
      const std::vector<double>& samples = sound.channels[channel];
      const auto begin = FitTone(samples, 1000, rate, window, 2 * window);
      for (std::size_t first = 2 * window; first + window <= samples.size(); first += window) {
        const auto tone = FitTone(samples, 1000, rate, first, first + window);
        ASSERT_NEAR(std::abs(tone), 0.25, 0.003) << rate << ", " << first;
        // A frequency 1 Hz off would turn it by 63 in 10 s; this allows 0.0002 Hz.
        ASSERT_NEAR(std::arg(tone / begin), 0, 0.01) << rate << ", " << first;
      }
      const double marker = channels == 1 ? 0.0625 : channel == 1 ? 0.125 : 0;
      EXPECT_NEAR(std::abs(FitTone(samples, 500, rate, window, samples.size())), marker, 0.001);
    }
  }
}

TEST_F(SoundSources, DeliverSpeechWholeAsSamplesAndAsAac) {
  Use([](auto& options) { options.mic = kSpeech, options.loop = false; });
  const auto pcm = quill::host::Create<IPcmSource>(kPcm);
  pcm->SetSampleRate(48000);
  const Sound plain = Capture(*pcm, 48000, 1);
  // The file itself: 44 bytes of header, then its samples.
  std::ifstream file(kSpeech, std::ios::binary);
  std::vector<std::int16_t> source(68545);
  file.seekg(44).read(reinterpret_cast<char*>(source.data()), 2 * std::ssize(source));
  const auto aac = quill::host::Create<IAacSource>(kAac);
  aac->SetTargetChannels(1);
  const Sound coded = Capture(*aac, 48000, 1);
  constexpr std::size_t kPriming = 1024;  // samples that the encoder puts in front
  ASSERT_TRUE(file && plain.Length() >= source.size() && plain.Length() < source.size() + 960);
  ASSERT_GE(coded.Length(), source.size() + kPriming) << "the end is not cut off";
  double signal = 0;
  double noise = 0;
  for (std::size_t i = 0; i < source.size(); ++i) {
    const double sample = plain.channels[0][i];
    ASSERT_EQ(std::lround(sample * 32768), source[i]) << "nothing was to be converted";
    signal += sample * sample;
    noise += std::pow(sample - coded.channels[0][i + kPriming], 2);
  }
  EXPECT_GT(10 * std::log10(signal / noise), 40);
}

// Sines of 500 and 1000 Hz are orthogonal in whole seconds; what they leave is noise.
TEST_F(SoundSources, CodeTonesAsAacWithLittleNoise) {
  MakeSound("sine=f=500:r=48000:d=4,volume=7.2");
  const struct {
    std::string mic;
    int rate;
    int channels;
    int bit_rate_bps;
    int rate_index;
    int decibels;
  } rows[] = {{"tone", 48000, 2, 128'000, 3, 40}, {"tone", 44100, 1, 128'000, 4, 40},
              {"tone", 32000, 2, 128'000, 5, 40}, {"tone", 8000, 1, 128'000, 11, 40},
              {_path, 48000, 2, 128'000, 3, 55},  {_path, 16000, 2, 96'000, 8, 42}};
  for (const auto& [mic, rate, channels, bit_rate_bps, rate_index, decibels] : rows) {
    Use([&mic = mic](auto& options) { options.mic = mic; });
    const auto source = quill::host::Create<IAacSource>(kAac);
    source->SetSampleRate(rate);
    source->SetChannels(channels);
    source->SetBitRate(bit_rate_bps);
    const Sound sound = Capture(*source, rate, channels, 3);
    const auto info = source->GetAacMediaInfo();
    EXPECT_EQ(info.rateidx, rate_index);
    EXPECT_EQ(info.bitrate, std::min(bit_rate_bps, 6 * rate * channels)) << "6 bits a sample";
    EXPECT_NEAR(sound.Drift_ns(), 0, 1000);
    const auto second = static_cast<std::size_t>(rate);
    for (const auto& channel : sound.channels) {
      double noise = 0;
      for (std::size_t i = second; i < 3 * second; ++i) noise += channel[i] * channel[i] / 2 / rate;
      double power = 0;
      for (const int hertz : {500, 1000}) {
        power += std::norm(FitTone(channel, hertz, rate, second, 3 * second)) / 2;
      }
      EXPECT_GT(10 * std::log10(power / (noise - power)), decibels) << mic << rate;
    }
  }
}

TEST_F(SoundSources, HoldTheBitRateAndBandwidthOfAac) {
  MakeSound("anoisesrc=a=0.3:r=48000:d=4:seed=1");
  const auto source = quill::host::Create<IAacSource>(kAac);
  Use([this](auto& options) { options.mic = _path; });
  for (const int bit_rate_bps : {32'000, 128'000, 256'000}) {
    source->SetBitRate(bit_rate_bps);
    const Sound sound = Capture(*source, 48000, 2, 4);
    EXPECT_NEAR(static_cast<double>(sound.bytes) * 2, bit_rate_bps, 0.1 * bit_rate_bps);
  }
  Use([](auto& options) { options.mic = "tone:9000"; });
  source->SetBandWidth(6000);
  const Sound sound = Capture(*source, 48000, 2, 1);
  EXPECT_LT(std::abs(FitTone(sound.channels[0], 9000, 48000, 4800, 43200)), 0.001);
}

// Blocks have 20 ms; the first sample that is encoded stands 1024 samples behind the first stamp.
TEST_F(SoundSources, BeginAnAacFrameWithTheFirstBlockAfterALoss) {
  Use([](auto& options) { options.paced = true; });
  const auto source = quill::host::Create<IAacSource>(kAac);
  ASSERT_TRUE(source->Open() && source->Start());
  Frame frame;
  ASSERT_TRUE(source->PullFrame(frame, true));
  const double begin_ns = static_cast<double>(frame->timestamp) + 1024e9 / 48000;
  kill(quill::host::RtosProcessId(), SIGSTOP);
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(900);
  EXPECT_TRUE(Eventually([end] { return std::chrono::steady_clock::now() > end; }));
  kill(quill::host::RtosProcessId(), SIGCONT);
  std::int64_t last_ns = 0;
  do {
    last_ns = frame->timestamp;
    ASSERT_TRUE(source->PullFrame(frame, true));
    ASSERT_GE(frame->timestamp - last_ns, 1024 * 1'000'000'000LL / 48000 - 2);
  } while (frame->timestamp - last_ns < 100'000'000);
  EXPECT_NEAR(std::remainder(static_cast<double>(frame->timestamp) - begin_ns, 2e7), 0, 1000);
}

TEST_F(SoundSources, EndWhenTheirFileIsGoneAtItsNextPass) {
  std::filesystem::copy_file(kSpeech, _path);
  Use([this](auto& options) { options.mic = _path; });
  const auto source = quill::host::Create<IPcmSource>(kPcm);
  ASSERT_TRUE(source->Open());
  std::filesystem::remove(_path);
  const pid_t process = quill::host::RtosProcessId();
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(source->Start());
    for (Frame frame; source->PullFrame(frame, true);) continue;
    EXPECT_TRUE(source->Stop());
  }
  EXPECT_EQ(quill::host::RtosProcessId(), process);
}

// At 20 ms a block, of which two find room.
TEST_F(SoundSources, LoseWholeBlocksForASlowClientAndEndAllTheSame) {
  Use([](auto& options) {
    options.paced = true;
    options.session_slots = 2;
    options.loop = false;
    options.mic = kSpeech;
  });
  const auto source = quill::host::Create<IPcmSource>(kPcm);
  ASSERT_TRUE(source->Open() && source->Start());
  ASSERT_TRUE(Eventually([] { return Counters().dropped >= 3; }));
  Frame frame;
  ASSERT_TRUE(source->PullFrame(frame, true));
  std::uint32_t most = 0;
  for (int i = 0; i < 5; ++i) {
    const Frame last = std::exchange(frame, nullptr);
    ASSERT_TRUE(source->PullFrame(frame, true));
    const std::uint32_t steps = frame->seq - last->seq;
    most = std::max(most, steps);
    EXPECT_NEAR(static_cast<double>(frame->timestamp - last->timestamp), steps * 2e7, 1e6);
  }
  EXPECT_GT(most, 1U);
  Frame other;
  Frame none;
  ASSERT_TRUE(source->PullFrame(other, true));
  EXPECT_FALSE(source->PullFrame(none, true)) << "all slots are held";
}

}  // namespace
}  // namespace tessel::tests
