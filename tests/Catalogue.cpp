// What the plug-in offers: names, records, exported symbols, and the order of the slots that
// programs built long ago rely on.
#include <cstring>

#include <dlfcn.h>

#include "common/AudioDevice.h"
#include "common/StreamAppOutput.h"
#include "Fixture.h"
#include "JpegSnap.h"
#include "Photography.h"
#include "quill/IClass.h"
#include "tessel/IAacSource.h"
#include "tessel/ISpeaker.h"
#include "tessel/IYuvSource.h"

namespace tessel::tests {
namespace {

using api::streaming::IAacSource;
using api::streaming::IPcmSource;
using api::streaming::IYuvSource;
using namespace api::streaming::common;
using dualos::StreamApp;
using dualos::StreamAppOutput;
using quill::base::IClass;

// Loaded already: this only finds it.
void* Plugin() { return dlopen(TESSEL_PLUGIN, RTLD_NOW | RTLD_NOLOAD); }

template <typename T>
T* Symbol(const char* name) {
  return reinterpret_cast<T*>(dlsym(Plugin(), name));
}

class Catalogue : public StreamTest {};

Lines PluginNames() {
  Lines names;
  for (const IClass* record : quill::host::Classes()) {
    if (record->Module() == "pluginapistreaming") names.push_back(record->Name());
  }
  return names;
}

struct Names {
  const char* entry;  // the exported function
  const char* base;
  const char* aliases;  // "*" stands for "push" and "pull"; empty: none

  std::string Alias(const char* delivery) const { return Fill(aliases, '*', delivery); }
};
constexpr Names kSources[] = {
    {"RegisterApiPcmSource", "ApiPcmSource1", "ApiPcmSource-dualos-*"},
    {"RegisterApiAacSource", "ApiAacSource1", "ApiAacSource-dualos-*"},
    {"RegisterApiSpeaker", "Speaker-ApiSpeaker-dualos", ""},
    {"RegisterApiMicrophone", "Microphone-ApiMicrophone-dualos", ""},
    {"RegisterApiJpegSource", "ApiJpegSourceCbrc1", "ApiJpegSource-dualos-cbrc-*"},
    {"RegisterApiJpegSourceTrigger", "ApiJpegSourceTrigger1",
     "ApiJpegSourceTrigger-dualos-trigger-*"},
    {"RegisterApiJpegSnap", "ApiJpegSnap-dualos", ""},
    {"RegisterApiH264Source", "ApiH264SourceCbrc1", "ApiH264Source-dualos-cbrc-*"},
    {"RegisterApiH264SourceTrigger", "ApiH264SourceTrigger1",
     "ApiH264SourceTrigger-dualos-trigger-*"},
    {"RegisterApiH264SourceVbrc", "ApiH264SourceVbrc1", "ApiH264Source-vbrc-dualos-*"},
    {"RegisterApiH264SourceVbrcTrigger", "ApiH264SourceVbrcTrigger1",
     "ApiH264Source-dualos-vbrc-trigger-*"},
    {"RegisterApiYuvSource", "ApiYuvSource1", "ApiYuvSource-dualos-*"},
    {"RegisterApiYuvSourceFake", "ApiYuvSourceFake1", "ApiYuvSource-dualos-*-fake"},
    {"RegisterApiPhotography", "ApiPhotography-dualos", ""},
};

Lines AllNames() {
  Lines names;
  for (const Names& row : kSources) {
    names.emplace_back(row.base);
    if (*row.aliases != 0) names.insert(names.end(), {row.Alias("push"), row.Alias("pull")});
  }
  return names;
}

TEST_F(Catalogue, RecordsStandInOrderWithTheirMetadata) {
  EXPECT_EQ(PluginNames(), AllNames());
  for (const Names& names : kSources) {
    const std::string base = names.base;
    for (const std::string& name : {base, names.Alias("push"), names.Alias("pull")}) {
      if (name.empty()) continue;
      const IClass* record = IClass::Find(name.c_str(), true);
      ASSERT_NE(record, nullptr) << name;
      EXPECT_EQ(record->Version(), 65793U);
      EXPECT_EQ(record->Vendor(), "Harvelon");
      const bool takes_delivery = name == base && *names.aliases != 0;
      EXPECT_EQ(*record->ConstructorType(), takes_delivery ? typeid(void(bool)) : typeid(void()))
          << name;
      EXPECT_EQ(record->Base(), name == base ? nullptr : IClass::Find(base.c_str(), true));
      EXPECT_TRUE(record->Properties().empty());
      const auto* formats = record->Tag<YuvMediaInfoList>();
      EXPECT_EQ(formats != nullptr, base.find("Yuv") != std::string::npos) << name;
      EXPECT_TRUE(formats == nullptr || formats->at(0).format == "420V50");
      const auto* sounds = record->Tag<PcmMediaInfoList>();
      EXPECT_EQ(sounds != nullptr, base.find("Pcm") != std::string::npos) << name;
    }
  }
  EXPECT_EQ(IClass::Find("apih264sourcecbrc1", true), nullptr);
  EXPECT_NE(IClass::Find("apih264sourcecbrc1", false), nullptr) << "in any case of letters";
}

TEST_F(Catalogue, PcmRecordListsTheFormatsOfItsSounds) {
  std::vector<int> rates_and_channels;
  for (const auto& sound : *IClass::Find("ApiPcmSource1", true)->Tag<PcmMediaInfoList>()) {
    rates_and_channels.insert(rates_and_channels.end(), {sound.sampleRate, sound.channels});
    EXPECT_EQ(sound.format, 1);
    EXPECT_EQ(sound.bitsPerSample, 16);
  }
  EXPECT_EQ(rates_and_channels, (std::vector{48000, 1, 48000, 2, 44100, 1, 44100, 2, 32000, 1,
                                             32000, 2, 16000, 1, 16000, 2, 8000,  1, 8000,  2}));
}

TEST_F(Catalogue, AliasBindsPushOrPull) {
  for (const std::string& name : AllNames()) {
    const bool pull = name.find("-pull") != name.npos;
    if (!pull && name.find("-push") == name.npos) continue;
    const auto made = quill::host::Create<IStreamOutput>(name.c_str());
    ASSERT_TRUE(made) << name;
    EXPECT_EQ(made->IsSupportedPullFrame(), pull) << name;
    EXPECT_EQ(made->IsSupportedOutputFrameCallback(), !pull) << name;
    EXPECT_EQ(made->RegisterOutputCallback(nullptr), !pull) << name;
    const auto* trigger = dynamic_cast<ITrigger*>(made.get());
    const bool is_single = trigger != nullptr && trigger->IsSupportSingleFrameTrigger();
    EXPECT_EQ(is_single, name.find("trigger") != name.npos) << name;
  }
}

TEST_F(Catalogue, RegisteringTwiceLeavesOneRecordPerName) {
  auto* record = IClass::Find("ApiH264SourceCbrc1", true);
  record->Init("pluginapistreaming", 1, "somebody", nullptr, nullptr);
  Symbol<void(const char*)>("RegisterPluginApiStreaming")(nullptr);
  EXPECT_EQ(PluginNames(), AllNames());
  EXPECT_EQ(record->Version(), 65793U) << "the metadata is refreshed";
  Lines lines;
  for (const std::string& name : AllNames()) {
    lines.push_back("base/reflect/TClass/#/Register:\t!cl,class existed:" + name);
  }
  EXPECT_EQ(LogLines(), lines);
  const auto* formats = IClass::Find("ApiPcmSource1", true)->Tag<PcmMediaInfoList>();
  for (const Names& row : kSources) Symbol<void(const char*)>(row.entry)("ignored");
  EXPECT_EQ(LogLines(), lines) << "each enters its own";
  EXPECT_EQ(IClass::Find("ApiPcmSource1", true)->Tag<PcmMediaInfoList>(), formats)
      << "it is lent for good";
}

TEST_F(Catalogue, LoadingFindsThePluginByItsEntryAndReportsOtherLibraries) {
  EXPECT_STREQ(*Symbol<const char*>("__MODULE_string"),
               "corvalis/pluginapistreaming@version:1.1.1.6627");
  EXPECT_GT(*Symbol<int>("__cb_register_PluginApiStreaming"), 0);
  std::string error;
  EXPECT_TRUE(quill::host::LoadPlugin(TESSEL_PLUGIN)) << "again";
  EXPECT_EQ(PluginNames(), AllNames());
  EXPECT_FALSE(quill::host::LoadPlugin("/nowhere/libno.so", &error));
  EXPECT_NE(error.find("/nowhere/libno.so"), std::string::npos) << error;
  // Announced by another library, here the test itself.
  EXPECT_GT(quill::base::ReflectAdd([](const char*) { ADD_FAILURE(); }, 0, "test", "1"), 0);
  EXPECT_FALSE(quill::host::LoadPlugin("libm.so.6", &error));
  EXPECT_NE(error.find("libm.so.6 announces no plug-in"), std::string::npos) << error;
}

// Itanium C++ ABI: a pointer to a virtual member is 1 plus the offset of its slot; a virtual
// destructor takes two slots.
template <typename Member>
std::size_t Slot(Member member) {
  std::size_t word = 0;
  std::memcpy(&word, &member, sizeof word);
  return word % 2 == 1 ? (word - 1) / sizeof(void*) : 999;
}

// The members stand in slots that follow one another, from `first` on.
template <typename... Members>
void ExpectSlots(std::size_t first, Members... members) {
  std::vector<std::size_t> expected;
  while (expected.size() < sizeof...(members)) expected.push_back(first + expected.size());
  EXPECT_EQ((std::vector{Slot(members)...}), expected);
}

// Of several operations with one name, the one with this signature.
template <typename Signature, typename Class>
auto Of(Signature Class::*member) {
  return member;
}

TEST_F(Catalogue, SlotsStandInTheOrderThatClientsWereBuiltWith) {
  using Control = IStreamControl;
  ExpectSlots(2, &Control::Set, &Control::ChangeUp, &Control::ChangeDown, &Control::ChangeState,
              &Control::CurrentState, &Control::RegisterMessageCallback, &Control::SendMessage);
  using App = StreamApp;
  // Where they share their table the slots of the one are the first of the other.
  const auto made = quill::host::Create<App>(kPull);
  ASSERT_TRUE(made);
  EXPECT_EQ(static_cast<void*>(static_cast<Control*>(made.get())), static_cast<void*>(made.get()));
  ExpectSlots(9, &App::configure, &App::AppStringCreate0, &App::AppStringCreate1, &App::Open,
              &App::Close, &App::Start, &App::Stop, &App::IsStart);
  using Output = StreamAppOutput;
  ExpectSlots(7, &Output::RegisterMessageCallback, &Output::SendMessage, &Output::configure,
              &Output::AppStringCreate0, &Output::AppStringCreate1, &Output::Open, &Output::Close,
              &Output::Start, &Output::Stop, &Output::IsStart, &Output::IsSupportedPullFrame,
              &Output::IsSupportedOutputFrameCallback, &Output::PullFrame,
              &Output::RegisterOutputCallback, &Output::GetMediaInfo, &Output::CbOpen,
              &Output::CbClose, &Output::CbOutput);
  using Rate = IBitRateControl;
  ExpectSlots(0, &IEncoder::SetBitRate);
  ExpectSlots(3, &Rate::BitRateControlSupportedList, &Rate::IsSupport, &Rate::SelectBitRateControl,
              &Rate::SetFrameRate, &Rate::SetFrameRateMinimum, &Rate::SetFrameRateMaximum,
              &Rate::SetBitRateMinimum, &Rate::SetBitRateMaximum, &Rate::SetQP, &Rate::SetQPMinimum,
              &Rate::SetQPMaximum, &Rate::GetCurrentFrameRate, &Rate::GetCurrentBitRate,
              &Rate::GetCurrentQP);
  using Yuv = IYuvSource;
  ExpectSlots(2, &IYuvDevice::SetWidth, &IYuvDevice::SetHeight, &IYuvDevice::SetFormat,
              &IYuvDevice::SetInterlaced, &IYuvDevice::SetFrameRate, &IYuvDevice::GetYuvMediaInfo);
  ExpectSlots(9, &Yuv::IsSupportedPullFrame, &Yuv::IsSupportedOutputFrameCallback, &Yuv::PullFrame,
              &Yuv::RegisterOutputCallback, &Yuv::GetMediaInfo, &Yuv::SelectSensor,
              &Yuv::SetFrameRate, &Yuv::Open, &Yuv::Close, &Yuv::Start, &Yuv::Stop);
  using Sound = IPcmSource;
  ExpectSlots(0, &IAudio::SetSampleRate, &IAudio::SetChannels);
  ExpectSlots(14, &Sound::SelectMicrophone, &Sound::Microphone, &Sound::GetPcmMediaInfo);
  using Aac = IAacSource;
  ExpectSlots(17, &Aac::SetProfile, &Aac::SetTargetChannels, &Aac::SetBandWidth,
              &Aac::GetAacMediaInfo, &Aac::SetBitRate, &Aac::SetSampleRate, &Aac::SetChannels);
  using Device = dev::IAudioDevice;
  using Switches = dev::IAudioDeviceCtrl;
  ExpectSlots(2, &Device::DeviceID, &Device::Rate, &Device::Channels, &Device::Depth,
              &Device::Width, &Device::IsSupportVolumeControl, Of<bool(int)>(&Device::Volume),
              Of<int() const>(&Device::Volume), &Device::VolumeMax, &Device::VolumeMin,
              &Device::IsSupportAutoGainControl, Of<bool(bool)>(&Device::AGC),
              Of<bool() const>(&Device::AGC), &Device::IsSupportMute, Of<bool(bool)>(&Device::Mute),
              Of<bool() const>(&Device::Mute), &Device::IsSupportGain, Of<bool(int)>(&Device::Gain),
              Of<int() const>(&Device::Gain), &Device::GainMax, &Device::GainMin);
  ExpectSlots(0, &Switches::DevOpen, &Switches::DevClose, &Switches::DevStart, &Switches::DevStop,
              &Switches::DevPause, &Switches::DevResume);
  using Holder = dev::AudioDevice;
  ExpectSlots(23, Of<bool(int)>(&Holder::Rate), Of<bool(int)>(&Holder::Channels),
              Of<bool(int)>(&Holder::Depth), Of<bool(int)>(&Holder::VolumeMax),
              Of<bool(int)>(&Holder::VolumeMin));
  using Mic = dev::IMicrophone;
  ExpectSlots(23, &Mic::GetLeftSamples, Of<int(int&, short*, int)>(&Mic::Read),
              Of<int(int&, int*, int, int)>(&Mic::Read), &Mic::CreateReader, &Mic::DevOpen,
              &Mic::DevClose, &Mic::DevStart, &Mic::DevStop, &Mic::DevPause, &Mic::DevResume);
  using Horn = dev::ISpeaker;
  ExpectSlots(23, &Horn::GetLeftSamples, Of<int(short*, int)>(&Horn::Write),
              Of<int(int*, int, int)>(&Horn::Write), &Horn::DevOpen, &Horn::DevClose,
              &Horn::DevStart, &Horn::DevStop, &Horn::DevPause, &Horn::DevResume);
  using Still = dualos::JpegSnap;
  ExpectSlots(17, &Still::SelectSensor, &Still::SetWidth, &Still::SetHeight, &Still::SetQP,
              &Still::GetQP, &Still::SetURL, Of<bool(bool)>(&Still::Snap),
              Of<void(const char*, bool)>(&Still::Snap), &Still::ForceKeyFrame);
  using Photo = dualos::Photography;
  ExpectSlots(7, &Photo::RegisterMessageCallback, &Photo::SendMessage, &Photo::addChild,
              &Photo::SelectSensor, &Photo::SetQP, &Photo::GetQP, &Photo::SetURL,
              Of<bool(bool)>(&Photo::Snap), Of<void(const char*, bool)>(&Photo::Snap),
              &Photo::SetWidth, &Photo::SetHeight, &Photo::Open, &Photo::Close, &Photo::Start,
              &Photo::Stop);
}

}  // namespace
}  // namespace tessel::tests
