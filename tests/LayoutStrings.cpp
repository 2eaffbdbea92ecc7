// Attribute sets, layout strings, and the texts that the plug-in composes.
#include "Fixture.h"
#include "tessel/IAacSource.h"
#include "tessel/IPhotography.h"
#include "tessel/IYuvSource.h"

namespace tessel::tests {
namespace {

using api::streaming::common::IBitRateControl;
using api::streaming::common::IStreamControl;
using api::streaming::common::IVideoSource;
using quill::base::LayoutElement;
using quill::base::ParseLayout;
using quill::stream::kTrace;

std::string Nested(int depth) {
  return std::string(static_cast<std::size_t>(depth), '{') +
         std::string(static_cast<std::size_t>(depth), '}');
}

TEST(AttrSet, ReadsPairsInTheirOrderAndItsOwnTextBack) {
  const struct {
    const char* text;
    std::vector<AttrSet::Pair> pairs;
  } rows[] = {
      {"", {}},
      {"a=", {{"a", ""}}},
      {"a={}", {{"a", ""}}},
      {"a={{}}", {{"a", "{}"}}},
      {"b=1, a= 2=3 ,\n\tb=4", {{"b", "4"}, {"a", " 2=3 "}}},
      {"b={x=1,y={z=2}},a=F:x={1,2}+G", {{"b", "x=1,y={z=2}"}, {"a", "F:x={1,2}+G"}}},
  };
  for (const auto& row : rows) {
    AttrSet set;
    EXPECT_TRUE(set.Parse(row.text)) << row.text << ": " << set.Error();
    EXPECT_TRUE(set.Pairs() == row.pairs) << set.ToString(true);
    EXPECT_EQ(AttrSet(set.ToString(false).c_str()), set) << "its own text reads back";
  }
}

TEST(AttrSet, RefusesWithPositionAndReasonAndKeepsItsContents) {
  const std::string too_deep = "a=" + Nested(65);
  const std::string too_long = "a=" + std::string((1 << 20) - 1, 'x');
  const std::pair<const char*, const char*> rows[] = {
      {nullptr, "no text"},
      {"a=1,b", "position 5: expected \"=\" after the key"},
      {" =1", "position 1: expected a key"},
      {"a=1,", "position 4: expected a pair after \",\""},
      {"a={{}", "position 2: \"{\" is never closed"},
      {"a}=1", "position 1: \"}\" without \"{\""},
      {"a={1}2", "position 5: expected \",\" after \"}\""},
      {too_deep.c_str(), "position 66: nested deeper than 64"},
      {too_long.c_str(), "position 1048576: longer than 1 MiB"},
  };
  for (const auto& [text, error] : rows) {
    AttrSet set("old=1,kept={a=2}");
    EXPECT_FALSE(set.Parse(text)) << text;
    EXPECT_EQ(set.Error(), error);
    EXPECT_EQ(set.ToString(false), "old=1,kept={a=2}") << error;
  }
  AttrSet set;
  EXPECT_TRUE(set.Parse(("a=" + Nested(64)).c_str())) << set.Error();
  EXPECT_TRUE(set.Parse(set.ToString(false).c_str())) << set.Error();
  EXPECT_TRUE(set.Parse(too_long.substr(0, 1 << 20).c_str())) << set.Error();
  EXPECT_EQ(set.Error(), "");
}

TEST(AttrSet, AddsOnlyWhatCanBeWrittenAsText) {
  AttrSet set;
  for (const char* key : {"", "a,b", "a=b", "a{", "}a", " a", "\ta"}) {
    EXPECT_FALSE(set.Add(key, "1")) << key;
  }
  for (const char* value : {"{", "}", "}{", "{{}"}) EXPECT_FALSE(set.Add("a", value)) << value;
  set.Add("timeout", std::chrono::seconds(1));
  set.Add("loop", true);
  set.Add("w", 160);
  set.Add("w", -1);  // replaced in its place
  set.Add("z", "{1},2");
  EXPECT_EQ(set.ToString(true), "{timeout=1000000000,loop=true,w=-1,z={{1},2}}");
  EXPECT_TRUE(set.Remove("loop"));
  EXPECT_FALSE(set.Remove("loop"));
  EXPECT_STREQ(set.Get("z"), "{1},2") << "found in its new place";
}

TEST(AttrSet, ConvertsOnlyWholeTextsInRange) {
  // Whether `text` is of the type of `value`, and then its value, else the old one.
  const auto read = [](const char* text, auto value) {
    AttrSet set;
    set.Add("k", text);
    const bool is_read = set.Get("k", value);
    return std::pair(is_read, value);
  };
  EXPECT_EQ(read("+5", 99), std::pair(true, 5));
  EXPECT_EQ(read("-2147483648", 99), std::pair(true, -2147483647 - 1));
  for (const char* text : {"2147483648", "", "12x", " 1", "0x10", "++5", "+-5", "1.5"}) {
    EXPECT_EQ(read(text, 99), std::pair(false, 99)) << text;
  }
  for (const char* text : {"YES", "on", "1"}) EXPECT_EQ(read(text, false), std::pair(true, true));
  for (const char* text : {"No", "off", "0"}) EXPECT_EQ(read(text, true), std::pair(true, false));
  EXPECT_EQ(read("2", true), std::pair(false, true));
  const char* most = "18446744073709551615";
  EXPECT_EQ(read(most, 0ULL), std::pair(true, 18446744073709551615ULL));
  EXPECT_EQ(read(most, 7U), std::pair(false, 7U));
}

TEST(Layout, ReadsElementsOrRefusesWithPositionAndReason) {
  std::vector<LayoutElement> chain;
  std::string error;
  ASSERT_TRUE(ParseLayout("A+B:+C:x=1,y={D:z=1+E}", chain, error)) << error;
  ASSERT_EQ(chain.size(), 3U);
  EXPECT_EQ(chain[0].class_name + chain[1].class_name + chain[2].class_name, "ABC");
  EXPECT_TRUE(chain[0].params.Pairs().empty() && chain[1].params.Pairs().empty());
  EXPECT_STREQ(chain[2].params.Get("y"), "D:z=1+E");
  const std::pair<const char*, const char*> rows[] = {
      {nullptr, "no text"},
      {"", "position 0: expected an element"},
      {"A++B", "position 2: expected an element"},
      {"A{b}", "position 0: expected an element"},
      {"x=1", "position 0: expected an element"},
      {"A:x={", "position 4: \"{\" is never closed"},
      {"A+B:x",
       "element \"B\" at position 2, in its parameters, position 1: expected \"=\" after "
       "the key"},
  };
  for (const auto& [text, reason] : rows) {
    EXPECT_FALSE(ParseLayout(text, chain, error)) << text;
    EXPECT_EQ(error, reason);
    EXPECT_EQ(chain.size(), 3U) << "it keeps its contents";
  }
}

class Layouts : public StreamTest {
 protected:
  // Makes a source and learns its session and the address of its block.
  quill::host::Handle<IStreamControl> MakeKnown(const char* name) {
    WatchBlock();
    LogLines(kTrace);
    auto source = quill::host::Create<IStreamControl>(name);
    _address = quill::base::ToString<const void*>(_block);
    for (const std::string& line : LogLines(kTrace)) {
      const Lines match = Match(line, ".*/StreamApp.cpp/#/configure:\t_session_name=(.*)");
      if (!match.empty()) _session = match[1];
    }
    return source;
  }
  // Opens `source` against a real-time side that answers with the handle of no application. Of the
  // trace, what is sent and what comes back.
  Lines OpenAndTrace(IStreamControl& source) {
    Replace("shm0_cmd", [](AttrSet& args, const Command&) {
      return std::string(args.Get("cmd")) == "tesselCreate" && args.Add("object_base", "5ac0");
    });
    LogLines(kTrace);
    EXPECT_FALSE(source.ChangeUp(State::kReady));
    Lines trace;
    for (const std::string& line : LogLines(kTrace)) {
      if (line.find("=") == line.npos) continue;
      trace.push_back(Masked(line, "FuncSink[0-9]+", "FuncSink#"));
    }
    return trace;
  }
  std::string _session;
  std::string _address;  // of the block
};

// Every setting whose value the texts tell, each unchecked.
void ChangeSettings(IStreamControl& source) {
  if (auto* control = dynamic_cast<IBitRateControl*>(&source)) {
    control->SetQP(33);
    control->SetFrameRateMaximum(25);
    control->SetFrameRate(15);  // not told
  }
  if (auto* h264 = dynamic_cast<api::streaming::common::IH264*>(&source)) {
    h264->SetGop(50);
    h264->SetGopType("IBP");
    h264->SetGopType(nullptr);  // changes nothing
  }
  if (auto* video = dynamic_cast<IVideoSource*>(&source)) {
    video->SetWidth(640);
    video->SetHeight(-4);
  } else if (auto* yuv = dynamic_cast<api::streaming::IYuvSource*>(&source)) {
    yuv->SetFormat("");
    yuv->SetFormat(nullptr);
  } else if (auto* snap = dynamic_cast<api::streaming::IPhotography*>(&source)) {
    snap->SetQP(27);
  } else if (auto* aac = dynamic_cast<api::streaming::IAacSource*>(&source)) {
    aac->SetTargetChannels(1);
    aac->SetBitRate(96);
    aac->SetProfile("MAIN");
    aac->SetProfile(nullptr);
    aac->SetBandWidth(-7);
  } else if (auto* pcm = dynamic_cast<api::streaming::IPcmSource*>(&source)) {
    pcm->SetSampleRate(-1);
    pcm->SetChannels(0);
  }
}

// In a chain "@" stands for the block's address, "$" for the session, "^" for the camera and "&"
// for the encoder of changed settings.
TEST_F(Layouts, AreLetterForLetterAsGiven) {
  const std::string camera = "pv-yuv-src-adv:w=640,h=-4";
  const std::string h264 =
      "h264-encoder-dma:name=h264,goptype=IBP,gop=50,qp=33,vbrc=@,fr=25,clk=400000";
  const std::string still =
      "IOSinkPerFrame:name=fifo,dbg=true,newFrame=true,sendmsg={iosink={oper=AfterOpen,send={"
      "upward}},newframe={oper=AfterClose,send={upward}}},urlLayout={type=UrlSimple,vbrc=@},"
      "vbrc=@,vbrcidx=0";
  const struct {
    std::string name;
    const char* file;   // of the class that composes the chain
    std::string chain;  // in front of the sink
  } rows[] = {
      {kPull, "H264Source",
       "pv-yuv-src-adv:w=1920,h=1080+h264-encoder-dma:name=h264,goptype=IPPP,gop=15,qp=0,vbrc=@,"
       "fr=30,clk=400000"},
      {kPush, "H264Source", "^+&"},
      {"ApiH264SourceTrigger-dualos-trigger-pull", "H264SourceTrigger",
       "^+FrameTrigger:name=trig,vbrc=@+&"},
      {"ApiH264Source-vbrc-dualos-pull", "H264SourceVbrc",
       "^+FrameDroper:name=fdrop,vbrc=@+&+H264VBrc:name=vbrc,vbrc=@"},
      {"ApiH264Source-dualos-vbrc-trigger-pull", "H264SourceVbrcTrigger",
       "^+FrameTrigger:name=trig,vbrc=@+FrameDroper:name=fdrop,vbrc=@+&+H264VBrc:name=vbrc,vbrc=@"},
      {"ApiJpegSource-dualos-cbrc-pull", "JpegSource",
       "^+jpeg-encoder-dma:name=jpeg,qp=33,vbrc=@,fr=25,clk=400000"},
      {"ApiJpegSourceTrigger-dualos-trigger-pull", "JpegSourceTrigger",
       "^+FrameTrigger:name=trig,vbrc=@+jpeg-encoder:name=jpeg,vbrc=@,fr=25,clk=400000"},
      {"ApiYuvSource-dualos-pull", "YuvSource", "pv-yuv-src-adv:w=1920,h=1080,fmt="},
      {"ApiPcmSource-dualos-pull", "PcmSource", "pv-pcm-src:id=1+PcmFilter:rate=-1,ch=0"},
      {"ApiAacSource-dualos-push", "AacSource",
       "pv-pcm-src:+PcmFilter:rate=48000+aac-encoder:name=aac,profile=MAIN,br=96,ch=1,bw=-7"},
      {"ApiJpegSnap-dualos", "JpegSnap",
       "pv-yuv-src-adv:w=1920,h=1080+FrameTrigger:name=trig,vbrc=@+jpeg-encoder:name=jpeg,qp=27,"
       "vbrc=@,clk=400000"},
  };
  ASSERT_NE(dev::IAudioDevice::Microphone("dualos"), nullptr);
  for (const auto& [name, file, chain] : rows) {
    const auto source = MakeKnown(name.c_str());
    if (name != kPull) ChangeSettings(*source);
    const auto pipeline = [&](const std::string& elements) {
      const std::string text = "type=pipeline,layout={" + elements + "}";
      return Fill(Fill(Fill(Fill(text, '^', camera), '&', h264), '@', _address), '$', _session);
    };
    const bool is_still = name == "ApiJpegSnap-dualos";
    const std::string pull_mode = name.ends_with("pull") ? "true" : "false";
    const std::string first = pipeline(chain + "+ShmSink:name=shmsink,session_name=$,init=true");
    const std::string second =
        pipeline("ShmSource:name=shmsrc,session_name=$,apphd=0x5ac0,init=true+" +
                 (is_still ? still : "FuncSink#:name=funcsink,pullMode=" + pull_mode));
    const std::string folder = "plugin/api/linux/";
    const std::string create = folder + "common/StreamApp.cpp/#/AppCreate:\t";
    Lines expected = {folder + file + (".cpp/#/AppStringCreate0:\t" + first),
                      create + "type=Application,layout={" + first + "},status=ready",
                      create + "app0=0x5ac0",
                      folder + "common/StreamAppOutput.cpp/#/AppStringCreate1:\t" + second,
                      create + "type=Application,layout={" + second + "},status=ready"};
    if (is_still) expected.erase(expected.begin() + 3);
    EXPECT_EQ(OpenAndTrace(*source), expected) << name;
  }
}

}  // namespace
}  // namespace tessel::tests
