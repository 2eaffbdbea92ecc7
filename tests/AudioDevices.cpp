// Microphone and speaker: the commands that they send to the real-time side, and what their
// controls do to the samples.
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
    "canAgc=true,agc=false,canMute=true,mute=true";

// A log line of the plug-in's AudioDriver.cpp.
std::string Line(const char* function, const std::string& message) {
  return std::string("plugin/api/linux/AudioDriver.cpp/#/") + function + ":\t" + message;
}

class AudioDevices : public StreamTest {
 protected:
  // From here on each command gets `answer` and does not reach the real-time side.
  void Script(const std::string& answer, bool succeeds = true) {
    Replace("shm0_cmd", [this, answer, succeeds](AttrSet& args, const Command&) {
      _sent.push_back(args.ToString(false));
      const AttrSet script(answer.c_str());
      for (const auto& [key, value] : script.Pairs()) args.Add(key.c_str(), value);
      return succeeds;
    });
  }
  // The commands since the last call.
  Lines Sent() { return std::exchange(_sent, {}); }

 private:
  Lines _sent;
};

TEST_F(AudioDevices, FailAtTheFirstBadKeyOfTheProbe) {
  std::string answer = "dev=1";
  for (const auto& [bad, good, line] :
       {std::tuple(",rst=false", "", "!ap.GetOrDef(\"rst\",true)"),
        {"", "", "!ap.Get(\"object_base\",_obj)"},
        {",object_base=none", ",object_base=2a", "!_obj"},
        {"", "", "!ap.Get(\"rate\",_rate)"},
        {",rate=0", ",rate=8000", "!_rate"},
        {"", "", "!ap.Get(\"channels\",_channels)"},
        {",channels=0", ",channels=1", "!_channels"},
        {"", ",canVol=true", "!ap.Get(\"canVol\",_canVolume)"},
        {"", ",canAgc=true", "!ap.Get(\"canAgc\",_canAGC)"},
        {",canMute=perhaps", "", "!ap.Get(\"canMute\",_canMute)"}}) {
    Script(answer + bad);
    EXPECT_EQ(quill::host::CreateObject(kMicrophone, ""), nullptr) << line;
    EXPECT_EQ(LogLines().front(), Line("configure", line));
    answer += good;
  }
  Script("", false);
  EXPECT_EQ(quill::host::CreateObject(kSpeaker, "rate=1"), nullptr);
  EXPECT_EQ(LogLines().front(), Line("configure", "!Factory::Globle().Run(\"shm0_cmd\",ap)"));
  EXPECT_EQ(Sent().back(), "cmd=ProbeAudioDriver,devType=Speaker");
}

TEST_F(AudioDevices, TakeTheirValuesFromTheProbe) {
  Script(kEverything);
  const auto full = quill::host::Create<IMicrophone>(kMicrophone);
  ASSERT_TRUE(full);
  EXPECT_EQ((std::vector{full->DeviceID(), full->Rate(), full->Channels(), full->Depth(),
                         full->Width(), full->Volume(), full->VolumeMin(), full->VolumeMax(),
                         full->Gain(), full->GainMin(), full->GainMax()}),
            (std::vector{1, 44100, 2, 16, 2, 7, 5, 90, 24, 0, 255}));
  EXPECT_TRUE(full->IsSupportGain() && full->Gain(300) && full->Gain() == 300);
  EXPECT_TRUE(!full->AGC() && full->Mute());
}

TEST_F(AudioDevices, RefuseToSetAControlThatTheyLack) {
  Script(
      "object_base=2a,rate=8000,channels=1,canVol=false,canAgc=false,agc=true,canMute=false,"
      "mute=true");
  const auto bare = quill::host::Create<IMicrophone>(kMicrophone);
  ASSERT_TRUE(bare);
  EXPECT_FALSE(bare->AGC() || bare->Mute()) << "the probe's values do not count";
  EXPECT_FALSE(bare->AGC(true) || bare->Mute(true) || bare->Volume(10));
  EXPECT_EQ((std::vector{bare->Volume(), bare->VolumeMin(), bare->VolumeMax()}),
            (std::vector{32, 0, 100}));
  EXPECT_EQ(LogLines(),
            (Lines{Line("AGC", "!IsSupportAutoGainControl()"), Line("Mute", "!IsSupportMute()"),
                   Line("Volume", "!IsSupportVolumeControl()")}));
}

TEST_F(AudioDevices, SendOnlyChangesOfTheClampedValue) {
  Script(kEverything);
  const auto device = quill::host::Create<IMicrophone>(kMicrophone);
  ASSERT_TRUE(device);
  const std::string head = "cmd=SetAudioDriver,object_base=0x2a,devType=Microphone,";
  Sent();
  EXPECT_TRUE(device->Volume(150) && device->Volume(90) && device->Volume(91));
  EXPECT_TRUE(device->Volume(-5) && device->Volume() == 5);
  EXPECT_EQ(Sent(), (Lines{head + "vol=90", head + "vol=5"}));
  EXPECT_TRUE(device->AGC(true) && device->AGC(true) && device->Mute(false));
  EXPECT_TRUE(device->Volume(40) && device->Mute(true));
  EXPECT_EQ(Sent(),
            (Lines{head + "agc=true", head + "mute=false", head + "vol=40", head + "mute=true"}));
  EXPECT_EQ(device->Volume(), 0) << "Mute sets it";
  Script("", false);
  EXPECT_FALSE(device->Volume(41));
  EXPECT_TRUE(device->Volume(41)) << "stored although the command failed";
}

TEST_F(AudioDevices, ApplyTheMaximumFirstWhenTheLimitsCross) {
  Script(
      "object_base=2a,rate=1,channels=1,canVol=true,vol=7,volmin=60,volmax=40,canAgc=false,"
      "canMute=false");
  const auto crossed = quill::host::Create<IMicrophone>(kMicrophone);
  for (const auto& [asked, stored] : {std::pair(50, 40), {41, 40}, {40, 60}, {10, 60}, {70, 40}}) {
    EXPECT_TRUE(crossed->Volume(asked) && crossed->Volume() == stored) << asked;
  }
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

TEST_F(AudioDevices, OfTheKindSpeakerTraceTheVolumeControl) {
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

TEST_F(AudioDevices, AreProbedByNameUntilTheyAnswer) {
  EXPECT_EQ(IAudioDevice::Microphone("nobody"), nullptr);
  EXPECT_EQ(IAudioDevice::Microphone(nullptr), nullptr);
  quill::base::TClass<>::Enter<dualos::Microphone>("Microphone-ApiMicrophone-other");
  Script("", false);
  EXPECT_EQ(IAudioDevice::Microphone("other"), nullptr);
  Script(kEverything);
  IMicrophone* other = IAudioDevice::Microphone("other");
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(IAudioDevice::Microphone("other"), other);
  EXPECT_EQ(Sent().size(), 2U);
}

TEST_F(AudioDevices, KeepTheirSettingsWhenTheRealTimeSideDies) {
  IMicrophone* microphone = IAudioDevice::Microphone("dualos");
  ASSERT_NE(microphone, nullptr);
  const auto source = quill::host::Create<IPcmSource>("ApiPcmSource-dualos-pull");
  AttrSet probe("devType=Microphone");
  // Ends the real-time side if asked to. What a probe says of volume, gain control and mute then.
  const auto state = [&](bool is_killed) {
    if (is_killed) KillRtos();
    EXPECT_TRUE(!is_killed || (source->Close() && source->Open()));
    EXPECT_TRUE(RunRtos("ProbeAudioDriver", probe));
    return Lines{probe.Get("vol"), probe.Get("agc"), probe.Get("mute")};
  };
  ASSERT_TRUE(source->Open() && microphone->Volume(60) && microphone->AGC(true));
  EXPECT_EQ(state(false), (Lines{"60", "true", "false"}));
  AttrSet refused = probe;
  refused.Add("agc", "bogus");
  EXPECT_FALSE(RunRtos("SetAudioDriver", refused)) << "and it is not sent again";
  KillRtos();
  EXPECT_FALSE(microphone->Volume(50)) << "this starts no real-time side";
  EXPECT_EQ(quill::host::RtosProcessId(), 0);
  EXPECT_EQ(state(true), (Lines{"50", "true", "false"}));
  EXPECT_TRUE(microphone->Mute(true));
  EXPECT_EQ(state(false), (Lines{"0", "true", "true"}));
  AttrSet both("devType=Microphone,mute=true,vol=70");
  both.Add("object_base", probe.Get("object_base"));
  EXPECT_TRUE(RunRtos("SetAudioDriver", both)) << "one behind the other";
  EXPECT_EQ(state(true), (Lines{"70", "true", "true"}));
  EXPECT_TRUE(microphone->Mute(false));
  EXPECT_EQ(state(true), (Lines{"70", "true", "false"}));
  EXPECT_TRUE(microphone->AGC(false) && microphone->Volume(100) && source->Close());
}

TEST_F(AudioDevices, OfTheBoardNameWhatTheyRefuse) {
  AttrSet probe("devType=Speaker");
  ASSERT_TRUE(RunRtos("ProbeAudioDriver", probe));
  for (const auto& [pair, error] :
       {std::pair("devType=Horn", "the board has no audio device \"Horn\""),
        {"object_base=0x1", "Speaker: object_base=0x1 is not its handle"},
        {"vol=101", "Speaker: vol=101 outside 0..100"},
        {"vol=loud", "Speaker: vol=loud outside 0..100"},
        {"agc=true", "Speaker: it has no control \"agc\""},
        {"mute=2", "Speaker: mute=2 is neither true nor false"},
        {"", "Speaker: nothing to set"}}) {
    AttrSet request("devType=Speaker");
    request.Add("object_base", probe.Get("object_base"));
    const AttrSet row(pair);
    for (const auto& [key, value] : row.Pairs()) request.Add(key.c_str(), value);
    EXPECT_FALSE(RunRtos("SetAudioDriver", request));
    EXPECT_TRUE(LogLines().back().ends_with(error)) << error;
  }
}

TEST_F(AudioDevices, AreTheOnesOfTheBoardFile) {
  const std::string path = ::testing::TempDir() + "board-" + std::to_string(getpid());
  for (const auto& [text, reason] :
       {std::pair("Horn={}",
                  "no audio device is called \"Horn\"; there are Microphone and Speaker"),
        {"Microphone={rate=8000", "position 11: \"{\" is never closed"},
        {"Microphone={loud=1}", "Microphone: unknown key \"loud\""},
        {"Speaker={channels=1}", "Speaker: rate is missing"},
        {"Speaker={rate=fast,channels=1}", "Speaker: rate=fast cannot be read as a number"},
        {"Speaker={rate=7350,%}", "Speaker: rate=7350 is no multiple of 50 in 8000..192000"},
        {"Speaker={rate=8000,%,channels=3}", "Speaker: channels=3 outside 1..2"},
        {"Speaker={rate=8000,%,volmin=9,volmax=9}",
         "Speaker: volmax=9 is not above 0 and volmin=9"},
        {"Speaker={rate=8000,%,volmin=-9,volmax=0}",
         "Speaker: volmax=0 is not above 0 and volmin=-9"},
        {"Speaker={rate=8000,%,volmax=9,vol=10}", "Speaker: vol=10 outside volmin..volmax"}}) {
    std::string error;
    std::ofstream(path) << Fill(text, '%', "channels=1,canVol=1,canAgc=0,canMute=0");
    EXPECT_FALSE(rtos::AudioDevices::Load(path, error)) << text;
    EXPECT_EQ(error, path + ": " + reason);
  }
  std::ofstream(path) << "# a plain board\nMicrophone={rate=16000 , channels=1,  # narrow\n"
                         "  canVol=false, canAgc=false, canMute=true}\n";
  Use([&path](auto& options) { options.board = path; });
  const auto microphone = quill::host::Create<IMicrophone>(kMicrophone);
  ASSERT_TRUE(microphone);
  EXPECT_TRUE(microphone->Rate() == 16000 && microphone->Channels() == 1);
  EXPECT_EQ(quill::host::CreateObject(kSpeaker, ""), nullptr);
  std::filesystem::remove(path);
}

// Puts blocks of 20 ms of a steady sound through a microphone's level.
class Level : public ::testing::Test {
 protected:
  std::vector<std::int16_t> Next(int amplitude) {
    std::vector<std::int16_t> block(960, static_cast<std::int16_t>(amplitude));
    for (std::size_t i = 0; i < block.size(); i += 2)
      block[i] = static_cast<std::int16_t>(-amplitude);
    _level.Apply(block, _device->Gain(), _device->HasAutomaticGain());
    return block;
  }
  void Set(const char* pair) { EXPECT_TRUE(_device->Set(AttrSet(pair), _error)) << _error; }

 private:
  std::string _error;
  std::unique_ptr<rtos::AudioDevice> _device = rtos::AudioDevice::Create(
      AttrSet("rate=48000,channels=1,canVol=1,canAgc=1,canMute=1"), _error);
  rtos::SoundLevel _level{{48000, 1}};
};

TEST_F(Level, FollowsVolumeAndMuteWithinTenMilliseconds) {
  int before = 8000;
  for (const auto& [pair, level] : {std::pair("vol=100", 8000),
                                    {"vol=50", 1000},
                                    {"vol=0", 0},
                                    {"vol=100", 8000},
                                    {"mute=true", 0}}) {
    Set(pair);
    const auto block = Next(8000);
    EXPECT_NEAR(std::abs(block[239]), (before + level) / 2.0, 20) << "in a straight line";
    EXPECT_TRUE(std::abs(block[480]) == level && std::abs(block[959]) == level) << pair;
    before = level;
  }
}

TEST_F(Level, RisesBySixDecibelsASecondAndHoldsInSilence) {
  constexpr double kTarget = 3276.8;  // -20 dB of full scale
  Set("agc=true");
  const auto after = [this](int amplitude, int seconds) {
    for (int blocks = 50 * seconds; blocks > 1; --blocks) Next(amplitude);
    return std::abs(Next(amplitude).back());
  };
  const double first = after(500, 0);
  EXPECT_NEAR(after(500, 1) / first, 2, 0.1);
  EXPECT_NEAR(after(500, 3), kTarget, 40);
  EXPECT_NEAR(after(20, 1), 20 * kTarget / 500, 3) << "silence";
  const auto loud = Next(30000);
  EXPECT_LE(*std::max_element(loud.begin(), loud.end()), 29200) << "a peak lowers it at once";
  EXPECT_NEAR(after(30000, 5), kTarget, 40);
  Set("agc=false");
  EXPECT_EQ(after(500, 0), 500);
}

}  // namespace
}  // namespace tessel::tests
