// What the microphone hears, sample by sample: the tone, media files and sound cards. And the lamp
// of the test pattern, which is lit while the microphone's test input beeps.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include <sys/stat.h>

#include "Clock.h"
#include "FitTone.h"
#include "Fixture.h"
#include "OpenSoundInput.h"
#include "PatternMarks.h"
#include "SoundCard.h"
#include "TestPattern.h"

namespace tessel::tests {
namespace {

using rtos::SoundFormat;
using Samples = std::vector<std::int16_t>;

constexpr std::int64_t kMillisecondNs = 1'000'000;

// Opens an input and reads blocks of 20 ms until `most` samples are there or the input is over.
Samples Read(const std::string& name, const SoundFormat& format, std::size_t most = SIZE_MAX,
             bool loop = false, std::int64_t time_ns = 0) {
  std::string error;
  const auto input = rtos::OpenSoundInput(name, loop, format, error);
  EXPECT_NE(input, nullptr) << error;
  Samples samples;
  Samples block(static_cast<std::size_t>(format.rate / 50 * format.channels));
  while (input && samples.size() < most &&
         input->Read(block, time_ns) == rtos::SoundInput::Step::kSamples) {
    samples.insert(samples.end(), block.begin(), block.end());
    time_ns += 20 * kMillisecondNs;
  }
  return samples;
}

Samples Noise(std::size_t count) {
  std::minstd_rand random(7);
  Samples noise(count, 1);  // the last sample differs from padding
  std::generate(noise.begin(), noise.end() - 1,
                [&] { return static_cast<std::int16_t>(random()); });
  return noise;
}

class Sounds : public ::testing::Test {
 protected:
  Sounds() { std::filesystem::create_directory(_folder); }
  ~Sounds() override { std::filesystem::remove_all(_folder); }

  std::string Path(const std::string& name) const { return _folder + "/" + name; }
  // Writes a WAV file whose header counts `missing` bytes more than follow.
  std::string WriteWav(const SoundFormat& format, const Samples& samples, int missing = 0) const {
    const int size = 2 * static_cast<int>(samples.size());
    const int frame = 2 * format.channels;
    const auto number = [](int value) {
      return std::string(reinterpret_cast<const char*>(&value), sizeof value);
    };
    std::ofstream(Path("a.wav"), std::ios::binary)
        << "RIFF" << number(size + missing + 36) << "WAVEfmt " << number(16)
        << number(1 | format.channels << 16) << number(format.rate) << number(format.rate * frame)
        << number(frame | 16 << 16) << "data" << number(size + missing)
        << std::string(reinterpret_cast<const char*>(samples.data()), 0U + size);
    return Path("a.wav");
  }

  const std::string _folder = ::testing::TempDir() + "tessel-sounds-" + std::to_string(getpid());
};

TEST_F(Sounds, OfTheTestInputBeepSoftlyOnTheSecond) {
  constexpr SoundFormat kMono = {48000, 1};
  constexpr std::size_t kFirst = std::size_t{48} * 305;  // the sample on the second
  const Samples tone = Read("tone", kMono, 96000);
  Samples beeps = Read("test", kMono, 96000, false, 77 * kSecondNs - 305 * kMillisecondNs);
  for (std::size_t i = 0; i < 96000; ++i) {
    beeps[i] = static_cast<std::int16_t>(beeps[i] - tone[i]);
    const bool is_beep = (i + 48000 - kFirst) % 48000 < 4800;
    ASSERT_TRUE(is_beep || beeps[i] == 0) << i;
  }
  for (const auto& [from, to, amplitude] :
       {std::tuple(48U, 48U * 99, 8192), {0, 48, 4096}, {48 * 99, 48 * 100, 4096}}) {
    const auto part = FitTone(beeps, 3000, 48000, kFirst + from, kFirst + to);
    EXPECT_LT(std::abs(part - 1.0 * amplitude), amplitude == 8192 ? 1 : 300) << from;
  }
}

TEST_F(Sounds, OfAFileRepeatBitByBitOrEnd) {
  for (const SoundFormat& format : {SoundFormat{8000, 2}, {48000, 1}}) {
    const Samples known = Noise(std::size_t{2} * 5003);
    const int block_samples = format.rate / 50 * format.channels;
    const auto block = static_cast<std::size_t>(block_samples);
    Samples padded = known;
    padded.resize((known.size() + block - 1) / block * block);
    EXPECT_EQ(Read(WriteWav(format, known), format), padded);
    EXPECT_EQ(Read(WriteWav(format, known, 5000), format), padded);  // ends where it breaks off
    const Samples looped = Read(Path("a.wav"), format, 5 * known.size(), true);
    ASSERT_GE(looped.size(), 5 * known.size());
    for (std::size_t i = 0; i < looped.size(); ++i) ASSERT_EQ(looped[i], known[i % known.size()]);
  }
}

TEST_F(Sounds, OfAFileKeepLengthAndLevelWhenConverted) {
  for (const auto& [from, to] : {std::pair(SoundFormat{8000, 1}, SoundFormat{48000, 2}),
                                 {{44100, 2}, {48000, 1}},
                                 {{16000, 2}, {16000, 1}}}) {
    const Samples level(static_cast<std::size_t>(from.rate * from.channels), 30000);
    const Samples samples = Read(WriteWav(from, level), to);
    ASSERT_EQ(std::ssize(samples), to.rate * to.channels);
    for (const int sample : samples) ASSERT_NEAR(sample, 30000, 1);
  }
}

TEST_F(Sounds, OfAnUnknownInputAreRefusedByName) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  std::ofstream(Path("text")) << "not a sound\n";
  const auto expect = [](const std::string& name, const std::string& reason) {
    std::string error;
    EXPECT_EQ(rtos::OpenSoundInput(name, true, {16000, 2}, error), nullptr);
    EXPECT_EQ(error, std::string("microphone \"").append(name).append("\": ").append(reason));
  };
  for (const std::string hz : {"abc", "0", "8000", "99999999999"}) {
    expect("tone:" + hz,
           hz + " is not a whole number of Hz in 1..7999, below half of 16000 samples/s");
  }
  expect("alsa:nosuch", "Input/output error");
  expect("nosuch:file", "No such file or directory");
  for (const std::string& path : {_folder, Path("pipe")}) {
    expect(path, "neither a file nor a sound card");
  }
  for (const std::string& path : {Path("text"), WriteWav({8000, 1}, {})}) {
    expect(path, "no sound in it");
  }
}

TEST_F(Sounds, OfACardArriveWholeAndWithTheirTime) {
  const Samples known = Noise(9600);
  std::ofstream(Path("card.conf")) << "pcm.fed { type file format raw file \"/dev/null\" infile \""
                                   << WriteWav({48000, 2}, known) << "\" slave.pcm { type null } }";
  setenv("ALSA_CONFIG_PATH", Path("card.conf").c_str(), 1);
  std::string error;
  const std::int64_t opened_ns = NowNs();
  const auto card = rtos::OpenSoundInput("alsa:fed", true, {48000, 2}, error);
  unsetenv("ALSA_CONFIG_PATH");
  ASSERT_TRUE(card && card->IsDevice()) << error;
  Samples block(1920);
  for (std::size_t i = 0; i < 7680; ++i) {
    std::int64_t time_ns = 0;
    if (i % 1920 == 0) {
      ASSERT_EQ(card->Read(block, time_ns), rtos::SoundInput::Step::kSamples);
      EXPECT_LE(time_ns, NowNs());
      EXPECT_GE(time_ns, opened_ns - kSecondNs / 10);
    }
    ASSERT_TRUE(i < 22 || block[i % 1920] == known[i - 22]) << i;  // behind the file's head
  }
}

TEST_F(Sounds, OfACardAreTimedEvenlyExceptAfterALoss) {
  rtos::SoundClock clock;
  std::minstd_rand random(3);
  std::int64_t end_ns = 5 * kSecondNs;
  for (int i = 0; i < 1000; ++i) {
    if (i == 500) end_ns += kSecondNs;  // lost
    const auto jitter_ns = static_cast<std::int64_t>(random() % 4'000'000) - 2'000'000;
    const std::int64_t last_ns = clock.EndNs();
    clock.Add(end_ns + jitter_ns, 10'001'000);  // the card's clock is 100 ppm off
    end_ns += 10'000'000;
    EXPECT_NEAR(static_cast<double>(clock.EndNs() - end_ns), 0, 2.1e6) << i;
    const bool is_even = std::abs(clock.EndNs() - last_ns - 10'000'000) < 200'000;
    EXPECT_TRUE(is_even || i % 500 == 0) << i;
  }
}

TEST(Lamp, IsReadInPicturesOfEachShape) {
  for (const auto& [width, height] : {std::pair(80, 64), {640, 480}, {240, 640}}) {
    const auto area = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<std::uint8_t> y(area), u(area / 4), v(area / 4);
    const rtos::Picture picture = {
        width, height, {y.data(), u.data(), v.data()}, {width, width / 2, width / 2}};
    const rtos::TestPattern pattern(width, height, rtos::Colours::kJpeg);
    for (std::uint32_t number = 0; number < 600; ++number) {
      pattern.Draw(number, picture, number % 3 == 0);
      ASSERT_EQ(rtos::IsLampLit(y.data(), width, width, height), number % 3 == 0) << number;
    }
  }
}

}  // namespace
}  // namespace tessel::tests
