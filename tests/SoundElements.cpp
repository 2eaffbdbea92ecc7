// The sound filter and the AAC encoder by themselves: blocks of a known sound go in, and each
// sample that comes out, through a decoder that is not ours where it is coded, is compared with
// that sound at the moment that its time stamp tells.
#include <cmath>
#include <numbers>
#include <random>
#include <set>

#include "AacEncoder.h"
#include "Decoder.h"
#include "PcmFilter.h"
#include "SessionProducer.h"

namespace tessel::tests {
namespace {

using rtos::SoundFormat;
using rtos::Unit;
using rtos::Verdict;

constexpr std::int64_t kBlockNs = 20'000'000;
constexpr std::int64_t kFirstNs = 1'000'000'000'000;  // of the first block
constexpr std::int64_t kEdgeNs = 50'000'000;          // what the ends of a sound spoil at most
constexpr char kAac[] = "name=aac,profile=LC,br=128000,ch=2,bw=0";

double Sine(double hertz, double seconds) {
  return std::sin(2 * std::numbers::pi * hertz * seconds);
}
// What is heard by a channel; all repeat every second, but not with every block.
using Sound = double (*)(double seconds, int channel);
constexpr Sound kTone = [](double seconds, int channel) {
  return 0.25 * Sine(1003, seconds) + 0.125 * channel * Sine(501, seconds);
};
constexpr Sound kLoud = [](double seconds, int) { return 0.9 * Sine(501, seconds); };
constexpr Sound kLow = [](double seconds, int) { return 0.2 * Sine(3000, seconds); };
constexpr Sound kLowAndHigh = [](double seconds, int) {
  return 0.2 * Sine(3000, seconds) + 0.2 * Sine(9000, seconds);
};
constexpr Sound kNoise = [](double, int) {
  static std::mt19937 random(1);
  return std::uniform_real_distribution(-0.3, 0.3)(random);
};

struct Made {
  std::int64_t time_ns;
  std::vector<std::uint8_t> bytes;
  bool operator==(const Made&) const = default;
};

class SoundElements : public testing::Test, private rtos::Context {
 protected:
  void Hear(const SoundFormat& format, Sound sound = kTone) {
    _from = format;
    _second.clear();
    for (int i = 0; i < format.rate * format.channels; ++i) {
      const int frame = i / format.channels;
      const double value = sound(1.0 * frame / format.rate, i % format.channels);
      _second.push_back(static_cast<std::int16_t>(std::lround(32768 * value)));
    }
  }
  // A filter and, unless its parameters are null, an encoder. Returns why they refuse.
  std::string Open(const std::string& filter, const char* encoder = nullptr) {
    _has_encoder = encoder != nullptr;
    _media = {};
    _media.sample_rate = _from.rate;
    _media.channels = _from.channels;
    _media.frames_per_second = 50;
    _media.unit_bytes = _second.size() / 50 * sizeof(std::int16_t);
    _filter = std::make_unique<rtos::PcmFilter>();
    _encoder = std::make_unique<rtos::AacEncoder>();
    std::string error;
    const bool is_open = _filter->Open(*this, AttrSet(filter.c_str()), _media, error) &&
                         (!_has_encoder || _encoder->Open(*this, AttrSet(encoder), _media, error));
    EXPECT_EQ(is_open, error.empty());
    return error;
  }
  // What comes of so many seconds and their end. The blocks in `lost` are missing, those in `full`
  // find no room.
  std::vector<Made> Run(int seconds, const std::set<int>& lost = {},
                        const std::set<int>& full = {}) {
    std::vector<Made> made;
    std::vector<std::uint8_t> slot(_media.unit_bytes);
    Unit unit;
    unit.room = slot;
    const auto keep = [&](Verdict verdict) {
      EXPECT_NE(verdict, Verdict::kFail) << _filter->LastError() << _encoder->LastError();
      if (verdict == Verdict::kPass) {
        EXPECT_TRUE(unit.is_key);
        made.push_back({unit.time_ns, {slot.data(), slot.data() + unit.size_bytes}});
      }
      unit.is_key = false;
      unit.size_bytes = 0;
      unit.room = slot;
      return verdict == Verdict::kPass;
    };
    const auto encode = [&](Verdict verdict) {
      return verdict == Verdict::kPass && _has_encoder ? _encoder->Process(unit) : verdict;
    };
    _filter->Start();
    if (_has_encoder) _encoder->Start();
    const std::size_t size = _second.size() / 50;
    for (int block = 0; block < seconds * 50; ++block) {
      if (lost.contains(block)) continue;
      unit.time_ns = kFirstNs + block * kBlockNs;
      unit.samples = std::span(_second).subspan(static_cast<std::size_t>(block % 50) * size, size);
      if (full.contains(block)) unit.room = {};
      keep(encode(_filter->Process(unit)));
    }
    while (_filter->Drain(unit) == Verdict::kPass) keep(encode(Verdict::kPass));
    while (_has_encoder && keep(_encoder->Drain(unit))) continue;
    return made;
  }
  // By how much `sound` is stronger than all that is not it, dB, from `begin_ns` to `end_ns` after
  // the first block.
  double Decibels(const std::vector<Made>& made, std::int64_t begin_ns, std::int64_t end_ns,
                  Sound sound = kTone) {
    Decoder decoder(AV_CODEC_ID_AAC);
    double power = 0;
    double other = 0;
    for (const Made& unit : made) {
      const std::vector<double> samples = Decode(unit, decoder);
      for (std::size_t i = 0; i < samples.size(); ++i) {
        const int channel = static_cast<int>(i) % _media.channels;
        const int frame = static_cast<int>(i) / _media.channels;
        const double at_ns =
            static_cast<double>(unit.time_ns - kFirstNs) + frame * 1e9 / _media.sample_rate;
        if (at_ns < static_cast<double>(begin_ns) || at_ns >= static_cast<double>(end_ns)) continue;
        const double first = sound(at_ns / 1e9, 0);
        const double second = _from.channels == 1 ? first : sound(at_ns / 1e9, 1);
        const double wanted =
            _media.channels == 1 ? (first + second) / 2 : (channel == 0 ? first : second);
        power += wanted * wanted;
        other += (samples[i] - wanted) * (samples[i] - wanted);
      }
    }
    return 10 * std::log10(power / other);
  }

  rtos::Media _media;  // of the result
  std::unique_ptr<rtos::PcmFilter> _filter;
  std::unique_ptr<rtos::AacEncoder> _encoder;
  std::vector<std::int16_t> _second;  // of what is heard

 private:
  // Samples of full scale 1, channels interleaved.
  std::vector<double> Decode(const Made& made, Decoder& decoder) const {
    frame_t frame;
    frame.data = made.bytes.data();
    frame.size = static_cast<std::uint32_t>(made.bytes.size());
    EXPECT_TRUE(decoder.Decode(frame));
    EXPECT_EQ((frame.data[3] & 3) << 11 | frame.data[4] << 3 | frame.data[5] >> 5,
              static_cast<int>(frame.size));
    const AVFrame& sound = *decoder.picture;
    EXPECT_EQ(std::tuple(sound.nb_samples, sound.sample_rate, sound.ch_layout.nb_channels),
              std::tuple(1024, _media.sample_rate, _media.channels));
    std::vector<double> samples;
    for (int i = 0; i < sound.nb_samples * _media.channels; ++i) {
      const auto* plane = reinterpret_cast<const float*>(sound.data[i % _media.channels]);
      samples.push_back(plane[i / _media.channels]);
    }
    return samples;
  }

  const rtos::Board& GetBoard() const override { return _board; }
  quill::stream::VbrcBlock* Block(const char*, std::string&) const override { return nullptr; }
  std::unique_ptr<link::SessionProducer> Session(const char*, std::string&) const override {
    return nullptr;
  }
  int FramesPerSecond() const override { return 30; }
  const rtos::ElementRow* Encoder() const override { return _has_encoder ? &_row : nullptr; }

  const rtos::ElementRow _row = {"", nullptr, true};
  rtos::Board _board;
  SoundFormat _from;
  bool _has_encoder = false;
};

TEST_F(SoundElements, RefuseWhatTheyCannotDoByName) {
  struct Row {
    SoundFormat format;
    const char* filter;
    const char* encoder;
    const char* error;
  };
  constexpr SoundFormat kStereo = {48000, 2};
  for (const Row& row : {
           Row{kStereo, "rate=-1", nullptr, "rate=-1 outside 8000..48000"},
           {kStereo, "rate=abc", nullptr, "rate=abc outside 8000..48000"},
           {kStereo, "ch=0", nullptr, "ch=0 outside 1..2"},
           {kStereo, "rate=8000,chn=1", nullptr, "unknown parameter \"chn\""},
           {{}, "rate=8000", nullptr, "no sound comes from the elements in front"},
           {kStereo, "", "profile=HE-AAC", "profile=HE-AAC is not supported: LC is"},
           {kStereo, "", "profile=MAIN", "profile=MAIN is not supported: LC is"},
           {kStereo, "", "br=7999", "br=7999 outside 8000..576000"},
           {kStereo, "", "ch=3", "ch=3 outside 1..2"},
           {{44100, 1}, "", "bw=22051", "bw=22051 outside 0..22050"},
           {kStereo, "", "vbr=1", "unknown parameter \"vbr\""},
           {{48000, 6}, "", "ch=2", "ch=6 of the sound in front outside 1..2"},
           {kStereo, "rate=44000", "",
            "rate=44000 of the sound in front is none of 48000 44100 32000 24000 22050 16000 12000 "
            "11025 8000"},
           {{96000, 2}, "rate=48000", kAac, ""},
           {kStereo, "rate=8000,ch=1", "profile=AAC-LC,bw=4000", ""},
       }) {
    Hear(row.format);
    EXPECT_EQ(Open(row.filter, row.encoder), row.error);
  }
}

TEST_F(SoundElements, FilterKeepsWhatComesAsItIsAsked) {
  Hear({44100, 2}, kNoise);
  for (const char* filter : {"", "rate=44100,ch=2"}) {
    ASSERT_EQ(Open(filter), "");
    const std::vector<Made> made = Run(1, {}, {7});
    ASSERT_EQ(made.size(), 50U);
    for (std::size_t i = 0; i < made.size(); ++i) {
      EXPECT_EQ(made[i].time_ns, kFirstNs + static_cast<std::int64_t>(i) * kBlockNs);
      ASSERT_EQ(made[i].bytes.size(), i == 7 ? 0 : 882U * 4) << i;
      if (made[i].bytes.empty()) continue;
      EXPECT_EQ(std::memcmp(made[i].bytes.data(), &_second[i * 882 * 2], made[i].bytes.size()), 0);
    }
  }
}

TEST_F(SoundElements, AacIsTheSoundAtTheTimeThatTheStampsTell) {
  struct Row {
    SoundFormat from;
    const char* filter;
    const char* encoder;
    const char* description;
  };
  // The config begins with 5 bits of object type, 4 of rate index and 4 of channels; the rest says
  // that there is nothing more.
  for (const Row& row : {
           Row{{48000, 2},
               "rate=48000",
               kAac,
               "codec=aac,rate=48000,ch=2,profile=2,version=4,rateidx=3,adtslen=7,bitrate=128000,"
               "config=119056e500"},
           {{44100, 1},
            "",
            kAac,
            "codec=aac,rate=44100,ch=2,profile=2,version=4,rateidx=4,adtslen=7,bitrate=128000,"
            "config=121056e500"},
           {{48000, 2},
            "rate=16000",
            "br=64000,ch=1",
            "codec=aac,rate=16000,ch=1,profile=2,version=4,rateidx=8,adtslen=7,bitrate=64000,"
            "config=140856e500"},
           {{48000, 2},
            "rate=8000,ch=1",
            "",  // 6 bits a sample are the most
            "codec=aac,rate=8000,ch=1,profile=2,version=4,rateidx=11,adtslen=7,bitrate=48000,"
            "config=158856e500"},
       }) {
    Hear(row.from);
    ASSERT_EQ(Open(row.filter, row.encoder), "");
    EXPECT_EQ(_media.description.ToString(false), row.description);
    const std::vector<Made> made = Run(2);
    const int frames = (2 * _media.sample_rate + 1023) / 1024;
    EXPECT_EQ(std::ssize(made), frames + 1) << "and one in front";
    EXPECT_NEAR(static_cast<double>(made[0].time_ns - kFirstNs), -1024e9 / _media.sample_rate, 2);
    EXPECT_GT(Decibels(made, kEdgeNs, 2 * kSecondNs - kEdgeNs), 50) << row.description;
    EXPECT_EQ(made, Run(2)) << "begun again";
  }
}

TEST_F(SoundElements, AacDoesNotClipLoudTones) {
  for (const auto& [rate, parameters, decibels] : {std::tuple(48000, "br=128000", 55),
                                                   {48000, "br=64000,ch=1", 55},
                                                   {16000, "br=96000", 42}}) {
    Hear({rate, 2}, kLoud);
    ASSERT_EQ(Open("", parameters), "");
    const std::vector<Made> made = Run(2);
    EXPECT_GT(Decibels(made, kEdgeNs, 2 * kSecondNs - kEdgeNs, kLoud), decibels) << parameters;
    EXPECT_EQ(made, Run(2)) << "begun again";
  }
}

TEST_F(SoundElements, AacBridgesLossesAndGoesOnWithoutRoom) {
  Hear({48000, 2});
  ASSERT_EQ(Open("rate=32000", kAac), "");
  const std::vector<Made> whole = Run(2);
  std::set<int> full;
  for (int block = 20; block < 40; ++block) full.insert(block);
  const std::vector<Made> thinned = Run(2, {}, full);
  ASSERT_EQ(thinned.size(), whole.size());
  for (std::size_t i = 0; i < whole.size(); ++i) {
    const bool is_dropped = thinned[i].bytes.empty();
    EXPECT_TRUE(is_dropped ? thinned[i].time_ns == whole[i].time_ns : thinned[i] == whole[i]) << i;
  }
  EXPECT_TRUE(thinned[20].bytes.empty() && !thinned[40].bytes.empty());

  // One block, less than what the frame lacks; two, more than that; seven, more than a frame.
  const std::vector<Made> made = Run(2, {21, 30, 31, 60, 61, 62, 63, 64, 65, 66});
  for (std::size_t i = 1; i < made.size(); ++i) {
    EXPECT_GE(made[i].time_ns - made[i - 1].time_ns, 1024 * kSecondNs / 32000 - 2) << i;
  }
  for (const int block : {22, 32, 67}) {  // the first after a loss
    const std::int64_t begin_ns = block * kBlockNs;
    EXPECT_GT(Decibels(made, begin_ns, begin_ns + kBlockNs / 4), 25) << block;
  }
}

TEST_F(SoundElements, AacHoldsBitRateAndBandwidth) {
  Hear({48000, 2}, kNoise);
  for (const int bit_rate : {32'000, 128'000, 256'000}) {
    ASSERT_EQ(Open("", ("br=" + std::to_string(bit_rate)).c_str()), "");
    double bits = 0;
    for (const Made& unit : Run(4)) bits += 8 * (static_cast<double>(unit.bytes.size()) - 7);
    EXPECT_NEAR(bits / 4, bit_rate, bit_rate * 0.05);
  }
  Hear({48000, 2}, kLowAndHigh);
  ASSERT_EQ(Open("", "bw=6000"), "");
  EXPECT_GT(Decibels(Run(2), kEdgeNs, 2 * kSecondNs - kEdgeNs, kLow), 40) << "the high one is gone";
}

}  // namespace
}  // namespace tessel::tests
