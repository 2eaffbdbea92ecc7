// Microphone and speaker: what is asked of the real-time side, what is sent to it, and what it does
// to the samples.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>

#include "AudioDevices.h"
#include "Fixture.h"
#include "Microphone.h"
#include "quill/IClass.h"
#include "SoundLevel.h"
#include "tessel/IPcmSource.h"
#include "tessel/ISpeaker.h"

namespace tessel::tests {
namespace {

using api::streaming::IPcmSource;
using dev::IAudioDevice;
using dev::IMicrophone;
using dev::ISpeaker;
using quill::stream::kTrace;

constexpr char kMicrophone[] = "Microphone-ApiMicrophone-dualos";
constexpr char kSpeaker[] = "Speaker-ApiSpeaker-dualos";
constexpr char kEverything[] =
    "dev=1,rst=true,object_base=0x2a,rate=44100,channels=2,canVol=true,vol=7,volmin=5,volmax=90,"
    "canAgc=true,agc=false,canMute=true,mute=false";

// A line of the plug-in, without what every line of that file has in front.
std::string Line(const char* function, const std::string& message) {
  return std::string("plugin/api/linux/AudioDriver.cpp/#/") + function + ":\t" + message;
}

class AudioDevices : public StreamTest {
 protected:
  // From here on `answer` is what a probe gets, and what is sent is kept.
  void Script(const char* answer, bool is_heard = true) {
    Replace("shm0_cmd", [this, answer, is_heard](AttrSet& args, const Command&) {
      _sent.push_back(args.ToString(false));
      const AttrSet script(answer);
      for (const auto& [key, value] : script.Pairs()) args.Add(key.c_str(), value);
      return is_heard;
    });
  }
  Lines Sent() { return std::exchange(_sent, {}); }

 private:
  Lines _sent;
};

TEST_F(AudioDevices, AreProbedInOrderAndFailAtTheFirstLack) {
  const struct {
    const char* key;
    const char* value;  // null: taken out of the answer
    const char* line;
  } rows[] = {
      {"rst", "false", "!ap.GetOrDef(\"rst\",true)"},
      {"object_base", nullptr, "!ap.Get(\"object_base\",_obj)"},
      {"object_base", "0", "!_obj"},
      {"object_base", "none", "!_obj"},
      {"rate", nullptr, "!ap.Get(\"rate\",_rate)"},
      {"rate", "0", "!_rate"},
      {"channels", nullptr, "!ap.Get(\"channels\",_channels)"},
      {"channels", "0", "!_channels"},
      {"canVol", nullptr, "!ap.Get(\"canVol\",_canVolume)"},
      {"canAgc", nullptr, "!ap.Get(\"canAgc\",_canAGC)"},
      {"canMute", "perhaps", "!ap.Get(\"canMute\",_canMute)"},
  };
  for (const auto& [key, value, line] : rows) {
    const std::string whole = kEverything;  // what follows the key is left out, too: it is not read
    const std::string pair = value == nullptr ? "" : std::string(",") + key + "=" + value;
    const std::string text = whole.substr(0, whole.find(key) - 1) + pair;
    Script(text.c_str());
    EXPECT_EQ(quill::host::CreateObject(kMicrophone, ""), nullptr) << line;
    EXPECT_EQ(LogLines().front(), Line("configure", line));
  }
  Script("", false);
  EXPECT_EQ(quill::host::CreateObject(kSpeaker, "rate=1"), nullptr);
  EXPECT_EQ(LogLines().front(), Line("configure", "!Factory::Globle().Run(\"shm0_cmd\",ap)"));
  EXPECT_EQ(Sent().back(), "cmd=ProbeAudioDriver,devType=Speaker");
}

TEST_F(AudioDevices, TakeOverWhatTheProbeSays) {
  Script(kEverything);
  const auto full = quill::host::Create<IMicrophone>(kMicrophone);
  ASSERT_TRUE(full);
  EXPECT_EQ((std::vector{full->DeviceID(), full->Rate(), full->Channels(), full->Depth(),
                         full->Width(), full->Volume(), full->VolumeMin(), full->VolumeMax(),
                         full->Gain(), full->GainMin(), full->GainMax()}),
            (std::vector{1, 44100, 2, 16, 2, 7, 5, 90, 24, 0, 255}));
  EXPECT_TRUE(full->IsSupportGain() && full->Gain(300) && full->Gain() == 300);
  // What may be left out keeps its value, and so does what the device lacks.
  Script(
      "object_base=2a,rate=8000,channels=1,canVol=true,canAgc=false,agc=true,canMute=false,"
      "mute=true");
  const auto bare = quill::host::Create<IMicrophone>(kMicrophone);
  ASSERT_TRUE(bare);
  EXPECT_EQ((std::vector{bare->Volume(), bare->VolumeMin(), bare->VolumeMax()}),
            (std::vector{32, 0, 100}));
  EXPECT_FALSE(bare->AGC() || bare->Mute());
  EXPECT_FALSE(bare->AGC(true) || bare->Mute(true));
  EXPECT_EQ(LogLines(),
            (Lines{Line("AGC", "!IsSupportAutoGainControl()"), Line("Mute", "!IsSupportMute()")}));
}

TEST_F(AudioDevices, SendEffectiveChangesOnly) {
  Script(kEverything);
  const auto device = quill::host::Create<IMicrophone>(kMicrophone);
  ASSERT_TRUE(device);
  const std::string head = "cmd=SetAudioDriver,object_base=0x2a,devType=Microphone,";
  Sent();
  EXPECT_TRUE(device->Volume(150) && device->Volume(90) && device->Volume(91));
  EXPECT_EQ(Sent(), Lines{head + "vol=90"});
  EXPECT_TRUE(device->Volume(-5) && device->Volume() == 5);
  EXPECT_EQ(Sent(), Lines{head + "vol=5"});
  EXPECT_TRUE(device->Volume(40) && device->AGC(true) && device->AGC(true) && device->Mute(true));
  EXPECT_EQ(Sent(), (Lines{head + "vol=40", head + "agc=true", head + "mute=true"}));
  EXPECT_EQ(device->Volume(), 0) << "muting takes the level along";
  EXPECT_TRUE(device->Mute(false) && device->Volume() == 0 && device->Volume(40));
  EXPECT_EQ(Sent(), (Lines{head + "mute=false", head + "vol=40"}));
  Script("", false);
  EXPECT_FALSE(device->Volume(41));
  EXPECT_TRUE(device->Volume(41)) << "what was not heard is stored all the same";
  Script(
      "object_base=2a,rate=1,channels=1,canVol=true,vol=7,volmin=60,volmax=40,canAgc=false,"
      "canMute=false");
  const auto crossed = quill::host::Create<IMicrophone>(kMicrophone);
  Sent();
  for (const auto& [asked, stored] : {std::pair(50, 40), {41, 40}, {40, 60}, {10, 60}, {70, 40}}) {
    EXPECT_TRUE(crossed->Volume(asked) && crossed->Volume() == stored) << asked;
  }
  EXPECT_EQ(Sent(), (Lines{head + "vol=40", head + "vol=60", head + "vol=40"}))
      << "the maximum is looked at first";
  Script("object_base=0x2b,rate=1,channels=1,canVol=false,canAgc=false,canMute=false");
  const auto fixed = quill::host::Create<IMicrophone>(kMicrophone);
  EXPECT_FALSE(fixed->Volume(10));
  EXPECT_EQ(fixed->Volume(), 32);
  EXPECT_EQ(LogLines(), Lines{Line("Volume", "!IsSupportVolumeControl()")});
}

TEST_F(AudioDevices, MoveNoSamples) {
  Script(kEverything);
  const auto microphone = quill::host::Create<IMicrophone>(kMicrophone);
  const auto speaker = quill::host::Create<ISpeaker>(kSpeaker);
  int count = 5;
  short low[2] = {3, 4};
  int wide[2] = {3, 4};
  EXPECT_EQ((std::vector{microphone->GetLeftSamples(0), microphone->Read(count, low, 2),
                         microphone->Read(count, wide, 2, 1), speaker->GetLeftSamples(),
                         speaker->Write(low, 2), speaker->Write(wide, 2, 1)}),
            std::vector<int>(6));
  EXPECT_TRUE(count == 5 && low[0] == 3 && wide[0] == 3 && microphone->CreateReader() == nullptr);
  using Switches = dev::IAudioDeviceCtrl;
  for (const auto move : {&Switches::DevOpen, &Switches::DevClose, &Switches::DevStart,
                          &Switches::DevStop, &Switches::DevPause, &Switches::DevResume}) {
    EXPECT_FALSE((*microphone.*move)() || (*speaker.*move)());
  }
}

TEST_F(AudioDevices, ASpeakerTellsOfItsVolumeControl) {
  Script(kEverything);
  const auto speaker = quill::host::Create<ISpeaker>(kSpeaker);
  LogLines(kTrace);
  EXPECT_TRUE(speaker->Volume(50));
  const std::string begin =
      "\033[32mplugin/api/linux/Speaker.cpp/#/IsSupportVolumeControl:\t";  // green
  const std::string face = quill::base::ToString<const void*>(speaker.get());
  EXPECT_EQ(ColouredLines(kTrace), (Lines{"\033[36m" + Line("Volume", "Volume") + "\n\033[0m",
                                          begin + "(void*)(ISpeaker*)this=" + face + "\n\033[0m",
                                          begin + "_canVolume=true\n\033[0m"}));
}

TEST_F(AudioDevices, AreFoundByNameAndTriedAgain) {
  EXPECT_EQ(IAudioDevice::Microphone("nobody"), nullptr);
  EXPECT_EQ(IAudioDevice::Microphone(nullptr), nullptr);
  IMicrophone* microphone = IAudioDevice::Microphone("dualos");
  ASSERT_NE(microphone, nullptr);
  EXPECT_EQ(IAudioDevice::Microphone("dualos"), microphone);
  // A back end of another name, whose device is not there the first time.
  quill::base::TClass<>::Enter<dualos::Microphone>("Microphone-ApiMicrophone-other");
  Script("", false);
  EXPECT_EQ(IAudioDevice::Microphone("other"), nullptr);
  Script(kEverything);
  IMicrophone* other = IAudioDevice::Microphone("other");
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->Rate(), 44100);
  EXPECT_NE(other, microphone);
  EXPECT_EQ(IAudioDevice::Microphone("other"), other);
  EXPECT_EQ(Sent().size(), 2U) << "probed until it was there, then no more";
}

TEST_F(AudioDevices, KeepTheirSettingsOverALoss) {
  IMicrophone* microphone = IAudioDevice::Microphone("dualos");
  ASSERT_NE(microphone, nullptr);
  const auto source = quill::host::Create<IPcmSource>("ApiPcmSource-dualos-pull");
  ASSERT_TRUE(source->Open() && microphone->Volume(60) && microphone->AGC(true));
  AttrSet refused("devType=Microphone");
  ASSERT_TRUE(RunFarSide("ProbeAudioDriver", refused));
  refused.Add("agc", "bogus");
  EXPECT_FALSE(RunFarSide("SetAudioDriver", refused)) << "and it is not sent anew";
  KillFarSide();
  EXPECT_FALSE(microphone->Volume(50)) << "it is gone, and nothing is started for it";
  EXPECT_EQ(quill::host::FarSideProcess(), 0);
  EXPECT_TRUE(source->Close() && source->Open());
  AttrSet probe("devType=Microphone");
  ASSERT_TRUE(RunFarSide("ProbeAudioDriver", probe));
  EXPECT_STREQ(probe.Get("vol"), "50");
  EXPECT_STREQ(probe.Get("agc"), "true");
  EXPECT_TRUE(microphone->Mute(true));
  AttrSet again("devType=Microphone");
  ASSERT_TRUE(RunFarSide("ProbeAudioDriver", again));
  EXPECT_STREQ(again.Get("mute"), "true");
  EXPECT_STREQ(again.Get("vol"), "0");
  AttrSet both("devType=Microphone,mute=true,vol=70");
  both.Add("object_base", again.Get("object_base"));
  EXPECT_TRUE(RunFarSide("SetAudioDriver", both)) << "one behind the other";
  KillFarSide();
  EXPECT_TRUE(source->Close() && source->Open() && RunFarSide("ProbeAudioDriver", probe));
  EXPECT_STREQ(probe.Get("mute"), "true");
  EXPECT_STREQ(probe.Get("vol"), "70");
  EXPECT_TRUE(microphone->Mute(false));
  KillFarSide();
  EXPECT_TRUE(source->Close() && source->Open() && RunFarSide("ProbeAudioDriver", probe));
  EXPECT_STREQ(probe.Get("vol"), "70") << "as before";
  EXPECT_TRUE(microphone->AGC(false) && microphone->Volume(100));
  EXPECT_TRUE(source->Close());
}

TEST_F(AudioDevices, RefuseWhatTheBoardDoesNotHave) {
  const struct {
    const char* request;
    const char* error;
  } rows[] = {
      {"cmd=ProbeAudioDriver", "devType is missing"},
      {"cmd=ProbeAudioDriver,devType=Horn", "the board has no audio device \"Horn\""},
      {"cmd=SetAudioDriver,devType=Speaker,object_base=0x1,vol=1",
       "Speaker: object_base=0x1 is not its handle"},
      {"cmd=SetAudioDriver,devType=Speaker,vol=101", "Speaker: vol=101 outside 0..100"},
      {"cmd=SetAudioDriver,devType=Speaker,vol=loud", "Speaker: vol=loud outside 0..100"},
      {"cmd=SetAudioDriver,devType=Speaker,agc=true", "Speaker: it has no control \"agc\""},
      {"cmd=SetAudioDriver,devType=Speaker,mute=2", "Speaker: mute=2 is neither true nor false"},
      {"cmd=SetAudioDriver,devType=Speaker", "Speaker: nothing to set"},
  };
  AttrSet probe("devType=Speaker");
  ASSERT_TRUE(RunFarSide("ProbeAudioDriver", probe));
  for (const auto& [text, error] : rows) {
    AttrSet request(text);
    if (request.Get("object_base") == nullptr) {
      request.Add("object_base", probe.Get("object_base"));
    }
    EXPECT_FALSE(Factory::Globle().Run("shm0_cmd", request));
    EXPECT_TRUE(LogLines().back().ends_with(error)) << error;
  }
}

TEST_F(AudioDevices, AreWhatTheBoardsDescriptionSays) {
  const std::string path = ::testing::TempDir() + "board-" + std::to_string(getpid());
  const struct {
    const char* text;
    const char* error;
  } rows[] = {
      {"Horn={}", "no audio device is called \"Horn\"; there are Microphone and Speaker"},
      {"Microphone={rate=8000", "position 11: \"{\" is never closed"},
      {"Microphone={loud=1}", "Microphone: unknown key \"loud\""},
      {"Speaker={channels=1}", "Speaker: rate is missing"},
      {"Speaker={rate=fast,channels=1}", "Speaker: rate=fast cannot be read as a number"},
      {"Speaker={rate=7350,channels=1,canVol=0,canAgc=0,canMute=0}",
       "Speaker: rate=7350 is no multiple of 50 in 8000..192000"},
      {"Speaker={rate=8000,channels=3,canVol=0,canAgc=0,canMute=0}",
       "Speaker: channels=3 outside 1..2"},
      {"Speaker={rate=8000,channels=1,canVol=1,volmin=9,volmax=9,canAgc=0,canMute=0}",
       "Speaker: volmax=9 is not above 0 and volmin=9"},
      {"Speaker={rate=8000,channels=1,canVol=1,volmin=-9,volmax=0,canAgc=0,canMute=0}",
       "Speaker: volmax=0 is not above 0 and volmin=-9"},
      {"Speaker={rate=8000,channels=1,canVol=1,volmax=9,vol=10,canAgc=0,canMute=0}",
       "Speaker: vol=10 outside volmin..volmax"},
  };
  for (const auto& [text, reason] : rows) {
    std::string error;
    std::ofstream(path) << text;
    EXPECT_FALSE(rtos::AudioDevices::Load(path, error)) << text;
    EXPECT_EQ(error, path + ": " + reason);
  }
  std::ofstream(path) << "# a plain board\nMicrophone={rate=16000 , channels=1,  # narrow\n"
                         "  canVol=false, canAgc=false, canMute=true}\n";
  Use([&path](auto& options) { options.board = path; });
  const auto microphone = quill::host::Create<IMicrophone>(kMicrophone);
  ASSERT_TRUE(microphone);
  EXPECT_TRUE(microphone->Rate() == 16000 && microphone->Channels() == 1);
  EXPECT_FALSE(microphone->AGC(true));
  EXPECT_EQ(quill::host::CreateObject(kSpeaker, ""), nullptr);
  std::filesystem::remove(path);
}

// Blocks of 20 ms of a steady sound through the level of a microphone.
class Level : public ::testing::Test {
 protected:
  std::vector<std::int16_t> Next(int amplitude) {
    std::vector<std::int16_t> block(960);
    for (std::size_t i = 0; i < block.size(); ++i) {
      block[i] = static_cast<std::int16_t>(i % 2 == 0 ? amplitude : -amplitude);
    }
    _level.Apply(block);
    return block;
  }
  void Set(const char* control, const char* value) {
    std::string error;
    AttrSet request;
    request.Add(control, value);
    EXPECT_TRUE(_device->Set(request, error)) << error;
  }

 private:
  std::string _error;
  std::unique_ptr<rtos::AudioDevice> _device = rtos::AudioDevice::Create(
      AttrSet("rate=48000,channels=1,canVol=1,canAgc=1,canMute=1"), _error);
  rtos::SoundLevel _level{*_device};
};

TEST_F(Level, FollowsVolumeAndMuteWithinTenMilliseconds) {
  const struct {
    const char* control;
    const char* value;
    int level;  // of 8000
  } rows[] = {{"vol", "100", 8000}, {"vol", "50", 1000},  {"vol", "0", 0},     {"vol", "100", 8000},
              {"mute", "true", 0},  {"mute", "false", 0}, {"vol", "100", 8000}};
  int before = 8000;
  for (const auto& [control, value, level] : rows) {
    Set(control, value);
    const auto block = Next(8000);
    EXPECT_EQ(std::abs(block[480]), level) << control << value;
    EXPECT_EQ(std::abs(block[959]), level);
    EXPECT_NEAR(std::abs(block[239]), (before + level) / 2.0, 20) << "in a straight line";
    before = level;
  }
}

TEST_F(Level, AutomaticGainComesToItsTargetSlowlyAndHoldsInSilence) {
  constexpr double kTarget = 3276.8;  // -20 dB of full scale
  constexpr int kBlocksPerSecond = 50;
  Set("agc", "true");
  const auto after = [this](int amplitude, int blocks) {
    while (--blocks > 0) Next(amplitude);
    return std::abs(Next(amplitude).back());
  };
  const double first = after(500, 1);
  EXPECT_NEAR(after(500, kBlocksPerSecond) / first, 2, 0.1) << "6 dB a second";
  EXPECT_NEAR(after(500, 3 * kBlocksPerSecond), kTarget, 40);
  EXPECT_NEAR(after(20, kBlocksPerSecond), 20 * kTarget / 500, 3) << "silence is not pulled up";
  const auto loud = Next(30000);
  EXPECT_LE(std::abs(int{*std::max_element(loud.begin(), loud.end())}), 29200)
      << "a peak brings it down before it clips";
  EXPECT_NEAR(after(30000, 5 * kBlocksPerSecond), kTarget, 40);
  Set("agc", "false");
  EXPECT_EQ(after(500, 1), 500);
}

}  // namespace
}  // namespace tessel::tests
