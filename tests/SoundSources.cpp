// Sound from the board's microphone to the client, as samples and as AAC: what comes is judged by
// fitting the tone that went in, and by a decoder that is not ours.
#include <algorithm>
#include <cmath>
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
constexpr std::int64_t kBlockNs = 20'000'000;

// Samples of full scale 1, a vector a channel.
struct Sound {
  int rate = 0;
  std::vector<std::vector<double>> channels;
  std::int64_t first_ns = 0;  // time stamp of the first sample
  std::int64_t last_ns = 0;   // of the last frame, and the samples in front of it
  std::size_t before_last = 0;

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
};

TEST_F(SoundSources, BeginWithTheirDefaults) {
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

TEST_F(SoundSources, AreBoundToOneMicrophoneForGood) {
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

// Whoever derives from a source decides what a microphone is.
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

class Tones : public SoundSources, public ::testing::WithParamInterface<std::pair<int, int>> {};

INSTANTIATE_TEST_SUITE_P(Of, Tones,
                         ::testing::Values(std::pair(48000, 1), std::pair(48000, 2),
                                           std::pair(44100, 1), std::pair(44100, 2),
                                           std::pair(32000, 1), std::pair(32000, 2),
                                           std::pair(16000, 1), std::pair(16000, 2),
                                           std::pair(8000, 1), std::pair(8000, 2)),
                         [](const auto& instance) {
                           return std::to_string(instance.param.first) + "x" +
                                  std::to_string(instance.param.second);
                         });

// Where a sample is lost or doubled the phase of the tone jumps: by 0.13 at 48 kHz.
TEST_P(Tones, ComeInTheRightPitchWithoutASampleLost) {
  const auto [rate, channels] = GetParam();
  Use([](auto& options) { options.mic = "tone"; });
  const auto source = quill::host::Create<IPcmSource>(kPcm);
  source->SetSampleRate(rate);
  source->SetChannels(channels);
  const Sound sound = Capture(*source, rate, channels, 10);
  ASSERT_GE(sound.Length(), static_cast<std::size_t>(10 * rate));
  EXPECT_LT(std::abs(sound.Drift_ns()), kBlockNs);
  const std::size_t window = static_cast<std::size_t>(rate) / 10;
  for (std::size_t channel = 0; channel < sound.channels.size(); ++channel) {
    const std::vector<double>& samples = sound.channels[channel];
    const auto begin = FitTone(samples, 1000, rate, window, 2 * window);
    for (std::size_t first = 2 * window; first + window <= samples.size(); first += window) {
      const auto tone = FitTone(samples, 1000, rate, first, first + window);
      ASSERT_NEAR(std::abs(tone), 0.25, 0.003) << first;
      // A frequency 1 Hz off would turn it by 63 in 10 s; this allows 0.0002 Hz.
      ASSERT_NEAR(std::arg(tone / begin), 0, 0.01) << first;
    }
    const double marker = channels == 1 ? 0.0625 : channel == 1 ? 0.125 : 0;
    EXPECT_NEAR(std::abs(FitTone(samples, 500, rate, window, samples.size())), marker, 0.001);
  }
}

TEST_P(Tones, ComeThroughAacWithLittleNoise) {
  const auto [rate, channels] = GetParam();
  Use([](auto& options) { options.mic = "tone"; });
  const auto source = quill::host::Create<IAacSource>(kAac);
  source->SetSampleRate(rate);
  source->SetChannels(channels);
  const Sound sound = Capture(*source, rate, channels, 5);
  EXPECT_NEAR(sound.Drift_ns(), 0, 1000);
  const auto second = static_cast<std::size_t>(rate);
  ASSERT_GE(sound.Length(), 5 * second);
  for (const auto& channel : sound.channels) {
    // Whole seconds: both sines of the tone are orthogonal in them, and the rest is noise.
    double noise = 0;
    for (std::size_t i = second; i < 5 * second; ++i) noise += channel[i] * channel[i];
    noise /= 4.0 * rate;
    for (const int hertz : {500, 1000}) {
      noise -= std::norm(FitTone(channel, hertz, rate, second, 5 * second)) / 2;
    }
    const double decibels = 10 * std::log10(0.25 * 0.25 / 2 / noise);
    RecordProperty("signal_to_noise_dB", std::to_string(decibels));
    EXPECT_GT(decibels, 40);
    EXPECT_NEAR(std::abs(FitTone(channel, 1000, rate, second, 5 * second)), 0.25, 0.001);
  }
}

TEST_F(SoundSources, KeepTheirTimeOverTenMinutes) {
  const auto source = quill::host::Create<IPcmSource>(kPcm);
  source->SetSampleRate(44100);  // does not divide evenly into what the board hears
  const Sound sound = Capture(*source, 44100, 1, 600);
  EXPECT_GE(sound.Length(), 600U * 44100);
  EXPECT_LT(std::abs(sound.Drift_ns()), kBlockNs);
}

// Samples of `sound` from the one heard at `time_ns` on.
std::span<const double> From(const Sound& sound, std::int64_t time_ns) {
  const double skipped = static_cast<double>(time_ns - sound.first_ns) * sound.rate / 1e9;
  const auto first = static_cast<std::size_t>(std::lround(std::max(skipped, 0.0)));
  return std::span(sound.channels[0]).subspan(std::min(first, sound.Length()));
}

TEST_F(SoundSources, OfSpeechComeWholeAndAlikeThroughBoth) {
  Use([](auto& options) {
    options.mic = kSpeech;
    options.loop = false;
  });
  const auto pcm = quill::host::Create<IPcmSource>(kPcm);
  pcm->SetSampleRate(48000);
  const Sound plain = Capture(*pcm, 48000, 1);
  // The file itself: 44 bytes of header, then its samples.
  std::ifstream file(kSpeech, std::ios::binary);
  std::vector<std::int16_t> source(68545);
  file.seekg(44).read(reinterpret_cast<char*>(source.data()), 2 * std::ssize(source));
  ASSERT_TRUE(file);
  ASSERT_GE(plain.Length(), source.size());
  EXPECT_LT(plain.Length(), source.size() + 960);
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < source.size(); ++i) {
    wrong += std::lround(plain.channels[0][i] * 32768) == source[i] ? 0 : 1;
  }
  EXPECT_EQ(wrong, 0U) << "nothing was to be converted";

  const auto aac = quill::host::Create<IAacSource>(kAac);
  aac->SetTargetChannels(1);
  const Sound coded = Capture(*aac, 48000, 1);
  // By the time stamps alone: both begin with the file's first sample.
  const std::int64_t begin_ns = coded.first_ns + 1024 * 1'000'000'000LL / 48000;
  const auto decoded = From(coded, begin_ns);
  ASSERT_GE(decoded.size(), source.size()) << "the end is not cut off";
  double signal = 0;
  double noise = 0;
  for (std::size_t i = 0; i < source.size(); ++i) {
    signal += plain.channels[0][i] * plain.channels[0][i];
    noise += std::pow(plain.channels[0][i] - decoded[i], 2);
  }
  const double decibels = 10 * std::log10(signal / noise);
  RecordProperty("signal_to_noise_dB", std::to_string(decibels));
  EXPECT_GT(decibels, 40);
}

TEST_F(SoundSources, EndWhileTheClientHoldsAllThereIs) {
  Use([](auto& options) {
    options.paced = true;
    options.session_slots = 2;
    options.loop = false;
    options.mic = kSpeech;
  });
  const auto source = quill::host::Create<IPcmSource>(kPcm);
  ASSERT_TRUE(source->Open() && source->Start());
  Frame frames[2];
  Frame none;
  ASSERT_TRUE(source->PullFrame(frames[0], true) && source->PullFrame(frames[1], true));
  EXPECT_FALSE(source->PullFrame(none, true));
}

TEST_F(SoundSources, SurviveAFileThatIsGoneWhenItStartsAnew) {
  const std::string path = ::testing::TempDir() + std::to_string(getpid()) + "gone.wav";
  std::filesystem::copy_file(kSpeech, path, std::filesystem::copy_options::overwrite_existing);
  Use([&path](auto& options) { options.mic = path; });
  const auto source = quill::host::Create<IPcmSource>(kPcm);
  ASSERT_TRUE(source->Open());
  std::filesystem::remove(path);
  const pid_t process = quill::host::FarSideProcess();
  Frame frame;
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(source->Start());
    while (source->PullFrame(frame, true)) {
    }
    EXPECT_TRUE(source->Stop());
  }
  AttrSet probe("devType=Microphone");
  EXPECT_TRUE(RunFarSide("ProbeAudioDriver", probe));
  EXPECT_EQ(quill::host::FarSideProcess(), process);
}

// At 20 ms a block a stalled client loses whole blocks, and is told by the sequence.
TEST_F(SoundSources, DropWholeBlocksWhereTheClientIsSlow) {
  Use([](auto& options) {
    options.paced = true;
    options.session_slots = 2;
    options.mic = "tone";
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
}

}  // namespace
}  // namespace tessel::tests
