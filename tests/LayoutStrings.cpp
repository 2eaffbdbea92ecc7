// Attribute sets, layout strings, and the texts that the plug-in composes.
#include <random>

#include "Fixture.h"
#include "tessel/IAacSource.h"
#include "tessel/IPhotography.h"
#include "tessel/IYuvSource.h"

namespace tessel::tests {
namespace {

using quill::base::LayoutElement;
using quill::base::ParseLayout;
using quill::stream::kTrace;

std::string Nested(int depth) {
  return std::string(static_cast<std::size_t>(depth), '{') +
         std::string(static_cast<std::size_t>(depth), '}');
}

TEST(AttrSet, ReadsPairsInOrder) {
  const struct {
    const char* text;
    const char* pairs;  // "key>value;" each
  } rows[] = {
      {"", ""},
      {"a=1", "a>1;"},
      {"a=", "a>;"},
      {"a={}", "a>;"},
      {"b=2,a=1", "b>2;a>1;"},
      {"a=1, b=2,\n\tc=3", "a>1;b>2;c>3;"},
      {"a= 1 ", "a> 1 ;"},
      {"a=1=2", "a>1=2;"},
      {"a={x=1,y={z=2}},b=3", "a>x=1,y={z=2};b>3;"},
      {"a=F:x={1,2}+G", "a>F:x={1,2}+G;"},
      {"a=1,b=2,a=3", "a>3;b>2;"},
      {"a={{}}", "a>{};"},
  };
  for (const auto& row : rows) {
    AttrSet set;
    EXPECT_TRUE(set.Parse(row.text)) << row.text << ": " << set.Error();
    std::string pairs;
    for (const auto& [key, value] : set.Pairs())
      pairs.append(key).append(">").append(value).append(";");
    EXPECT_EQ(pairs, row.pairs) << row.text;
  }
}

TEST(AttrSet, RefusesWithPositionAndReasonAndKeepsItsContents) {
  const std::string too_deep = "a=" + Nested(65);
  const std::string too_long = "a=" + std::string((1 << 20) - 1, 'x');
  const struct {
    const char* text;
    const char* error;
  } rows[] = {
      {nullptr, "no text"},
      {"a", "position 1: expected \"=\" after the key"},
      {"=1", "position 0: expected a key"},
      {" =1", "position 1: expected a key"},
      {"a=1,", "position 4: expected a pair after \",\""},
      {"a=1,,b=2", "position 4: expected a key"},
      {"a=1,b", "position 5: expected \"=\" after the key"},
      {"a{b}=1", "position 1: expected \"=\" after the key"},
      {"a={", "position 2: \"{\" is never closed"},
      {"a={{}", "position 2: \"{\" is never closed"},
      {"a=}", "position 2: \"}\" without \"{\""},
      {"a}=1", "position 1: \"}\" without \"{\""},
      {"a={1}2", "position 5: expected \",\" after \"}\""},
      {"a={1}{2}", "position 5: expected \",\" after \"}\""},
      {too_deep.c_str(), "position 66: nested deeper than 64"},
      {too_long.c_str(), "position 1048576: longer than 1 MiB"},
  };
  for (const auto& row : rows) {
    AttrSet set("old=1,kept={a=2}");
    EXPECT_FALSE(set.Parse(row.text)) << row.text;
    EXPECT_EQ(set.Error(), row.error);
    EXPECT_EQ(set.ToString(false), "old=1,kept={a=2}") << row.error;
  }
  AttrSet set;
  EXPECT_TRUE(set.Parse(("a=" + Nested(64)).c_str())) << set.Error();
  EXPECT_TRUE(set.Parse(too_long.substr(0, 1 << 20).c_str())) << set.Error();
  EXPECT_EQ(set.Error(), "");
}

TEST(AttrSet, AddRefusesWhatCannotBeWritten) {
  for (const char* key : {"", "a,b", "a=b", "a{", "}a", " a", "\ta"}) {
    AttrSet set("old=1");
    EXPECT_FALSE(set.Add(key, "1")) << key;
    EXPECT_EQ(set.ToString(false), "old=1");
  }
  for (const char* value : {"{", "}", "}{", "{{}"})
    EXPECT_FALSE(AttrSet().Add("a", value)) << value;
  AttrSet set;
  set.Add("timeout", std::chrono::seconds(1));
  set.Add("loop", true);
  set.Add("w", 160);
  set.Add("w", -1);  // replaced in its place
  set.Add("z", "{1},2");
  EXPECT_EQ(set.ToString(true), "{timeout=1000000000,loop=true,w=-1,z={{1},2}}");
  EXPECT_TRUE(set.Remove("loop"));
  EXPECT_FALSE(set.Remove("loop"));
  EXPECT_STREQ(set.Get("w"), "-1");
  EXPECT_STREQ(set.Get("z"), "{1},2");
}

// What Add() takes, Parse(ToString()) gives back.
TEST(AttrSet, ReadsItsOwnTextBack) {
  constexpr unsigned kSeed = 77;
  std::mt19937 random(kSeed);
  const auto text = [&](const std::string& alphabet) {
    std::string made;
    for (auto left = random() % 8; left > 0; --left) made += alphabet[random() % alphabet.size()];
    return made;
  };
  int added = 0;
  for (int round = 0; round < 20000; ++round) {
    AttrSet set;
    for (int i = 0; i < 4; ++i)
      added += set.Add(text("aaabbb: +{").c_str(), text("ab=,{}{}+: \n\t/")) ? 1 : 0;
    AttrSet again;
    ASSERT_TRUE(again.Parse(set.ToString(false).c_str())) << "seed " << kSeed << set.ToString(true);
    ASSERT_EQ(again, set) << "seed " << kSeed << ", round " << round << set.ToString(true);
  }
  EXPECT_GT(added, 10000);
}

TEST(AttrSet, ReadsNestingAtItsLimitBack) {
  for (const int depth : {63, 64}) {
    AttrSet set;
    set.Add("a", Nested(depth));
    EXPECT_TRUE(AttrSet().Parse(set.ToString(false).c_str())) << depth << " added";
    set.Parse(("a=x" + Nested(depth)).c_str());
    EXPECT_TRUE(AttrSet().Parse(set.ToString(false).c_str())) << depth << " parsed";
  }
}

TEST(AttrSet, ConvertsOnlyWholeTextsInRange) {
  const struct {
    const char* text;
    bool is_int;
    int number;
  } rows[] = {{"12", true, 12},         {"+5", true, 5},
              {"-3", true, -3},         {"2147483647", true, 2147483647},
              {"2147483648", false, 0}, {"", false, 0},
              {"12x", false, 0},        {" 1", false, 0},
              {"0x10", false, 0},       {"++5", false, 0},
              {"+-5", false, 0},        {"1.5", false, 0}};
  for (const auto& row : rows) {
    AttrSet set;
    set.Add("k", row.text);
    int number = 99;
    EXPECT_EQ(set.Get("k", number), row.is_int) << row.text;
    EXPECT_EQ(number, row.is_int ? row.number : 99) << row.text;
  }
  const AttrSet set("yes=YES,on=on,one=1,no=No,off=off,zero=0,odd=2,big=18446744073709551615");
  for (const char* key : {"yes", "on", "one", "no", "off", "zero"}) {
    const bool meant = *key == 'y' || std::string(key).substr(0, 2) == "on";
    bool word = !meant;
    EXPECT_TRUE(set.Get(key, word) && word == meant) << key;
  }
  bool word = true;
  unsigned long long big = 0;
  unsigned small = 7;
  EXPECT_FALSE(set.Get("odd", word) || set.Get("absent", word));
  EXPECT_TRUE(word && set.Get("big", big) && big == 18446744073709551615U);
  EXPECT_FALSE(set.Get("big", small));
  EXPECT_EQ(small, 7U);
}

TEST(Layout, ReadsElements) {
  std::vector<LayoutElement> chain;
  std::string error;
  ASSERT_TRUE(ParseLayout("A+B:+C:x=1,y={D:z=1+E}", chain, error)) << error;
  ASSERT_EQ(chain.size(), 3U);
  EXPECT_EQ(chain[0].class_name + chain[1].class_name + chain[2].class_name, "ABC");
  EXPECT_TRUE(chain[0].params.Pairs().empty() && chain[1].params.Pairs().empty());
  EXPECT_STREQ(chain[2].params.Get("y"), "D:z=1+E");
}

TEST(Layout, RefusesWithPositionAndReasonAndKeepsItsContents) {
  const struct {
    const char* text;
    const char* error;
  } rows[] = {
      {nullptr, "no text"},
      {"", "position 0: expected an element"},
      {"A+", "position 2: expected an element"},
      {"A++B", "position 2: expected an element"},
      {":x=1", "position 0: expected an element"},
      {"A{b}", "position 0: expected an element"},
      {"x=1", "position 0: expected an element"},
      {"A:x={", "position 4: \"{\" is never closed"},
      {"A+B:x",
       "element \"B\" at position 2, in its parameters, position 1: expected \"=\" after "
       "the key"},
  };
  for (const auto& row : rows) {
    std::vector<LayoutElement> chain = {{"kept", {}}};
    std::string error;
    EXPECT_FALSE(ParseLayout(row.text, chain, error)) << row.text;
    EXPECT_EQ(error, row.error);
    ASSERT_EQ(chain.size(), 1U);
    EXPECT_EQ(chain[0].class_name, "kept");
  }
}

class Layouts : public StreamTest {
 protected:
  // Opens a camera against a real-time side that answers with `handle`; the layouts are in the
  // trace. Fails, as there is no such application.
  template <typename Source>
  Lines OpenAndTrace(const Source& camera, const char* handle) {
    Replace("shm0_cmd", [handle](AttrSet& args, const Command&) {
      return std::string(args.Get("cmd")) == "tesselCreate" && args.Add("object_base", handle);
    });
    LogLines(kTrace);
    EXPECT_FALSE(camera->Open());
    return LogLines(kTrace);
  }
  // Makes a source and learns its session and the address of its block.
  template <typename Interface = api::streaming::IH264Source>
  quill::host::Handle<Interface> MakeKnown(const char* name) {
    WatchBlock();
    LogLines(kTrace);
    auto source = quill::host::Create<Interface>(name);
    _address = quill::base::ToString<const void*>(_block);
    for (const std::string& line : LogLines(kTrace)) {
      const std::string mark = "/StreamApp.cpp/#/configure:\t_session_name=";
      const auto at = line.find(mark);
      if (at != std::string::npos) _session = line.substr(at + mark.size());
    }
    return source;
  }
  std::string _session;
  std::string _address;  // of the block
};

TEST_F(Layouts, OfTheH264SourceAreLetterForLetter) {
  const Camera camera = MakeKnown(kPull);
  ASSERT_TRUE(_session.starts_with("N6tessel6dualos10H264SourceE")) << _session;
  ASSERT_TRUE(_address.starts_with("0x"));
  const std::string chain =
      "type=pipeline,layout={pv-yuv-src-adv:w=1920,h=1080+h264-encoder-dma:name=h264,goptype=IPPP,"
      "gop=15,qp=0,vbrc=" +
      _address + ",fr=30,clk=400000+ShmSink:name=shmsink,session_name=" + _session + ",init=true}";
  const Lines trace = OpenAndTrace(camera, "5ac0");
  ASSERT_GE(trace.size(), 6U);
  EXPECT_EQ(trace[0], "plugin/api/linux/common/StreamApp.cpp/#/Open:\t");
  EXPECT_EQ(trace[1], "plugin/api/linux/H264Source.cpp/#/AppStringCreate0:\t" + chain);
  EXPECT_EQ(trace[2],
            "plugin/api/linux/common/StreamApp.cpp/#/AppCreate:\ttype=Application,"
            "layout={" +
                chain + "},status=ready");
  EXPECT_EQ(trace[3], "plugin/api/linux/common/StreamApp.cpp/#/AppCreate:\tapp0=0x5ac0");
  EXPECT_EQ(Masked(trace[4], "FuncSink[0-9]+:", "FuncSink#:"),
            "plugin/api/linux/common/StreamAppOutput.cpp/#/AppStringCreate1:\ttype=pipeline,"
            "layout={ShmSource:name=shmsrc,session_name=" +
                _session + ",apphd=0x5ac0,init=true+FuncSink#:name=funcsink,pullMode=true}");
}

TEST_F(Layouts, TellWhatWasSetBefore) {
  const Camera camera = MakeKnown(kPush);
  camera->SetWidth(640);
  camera->SetHeight(-4);  // stored unchecked
  camera->SetGop(50);
  camera->SetGopType("IBP");
  camera->SetGopType(nullptr);  // changes nothing
  camera->SetQP(33);
  camera->SetFrameRate(15);
  const std::string session =
      ",clk=400000+ShmSink:name=shmsink,session_name=" + _session + ",init=true}";
  const std::string begin =
      "plugin/api/linux/H264Source.cpp/#/AppStringCreate0:\ttype=pipeline,layout={pv-yuv-src-adv:"
      "w=640,h=-4+h264-encoder-dma:name=h264,goptype=IBP,gop=50,qp=";
  Lines trace = OpenAndTrace(camera, "1");
  EXPECT_EQ(trace[1], begin + "33,vbrc=" + _address + ",fr=30" + session);
  EXPECT_NE(trace[4].find(",pullMode=false}"), std::string::npos) << trace[4];
  camera->SetFrameRateMaximum(15);
  camera->SelectBitRateControl(camera->kConstant);
  trace = OpenAndTrace(camera, "1");
  EXPECT_EQ(trace[1], begin + "0,vbrc=" + _address + ",fr=15" + session);
}

TEST_F(Layouts, OfSoundBeginWithTheMicrophone) {
  ASSERT_NE(dev::IAudioDevice::Microphone("dualos"), nullptr);
  const auto pcm = MakeKnown<api::streaming::IPcmSource>("ApiPcmSource-dualos-pull");
  pcm->SetSampleRate(-1);  // stored unchecked
  pcm->SetChannels(0);
  const std::string place = "plugin/api/linux/PcmSource.cpp/#/";
  Lines trace = OpenAndTrace(pcm, "1");
  EXPECT_EQ(trace[1], place + "AppStringCreate0:\t");
  EXPECT_EQ(trace[2], place + "SelectMicrophone:\tdualos");
  EXPECT_EQ(trace[3], place +
                          "AppStringCreate0:\ttype=pipeline,layout={pv-pcm-src:id=1+PcmFilter:"
                          "rate=-1,ch=0+ShmSink:name=shmsink,session_name=" +
                          _session + ",init=true}");
  const auto aac = MakeKnown<api::streaming::IAacSource>("ApiAacSource-dualos-push");
  aac->SetTargetChannels(1);
  aac->SetBitRate(96);
  aac->SetProfile("MAIN");
  aac->SetProfile(nullptr);
  aac->SetBandWidth(-7);
  trace = OpenAndTrace(aac, "1");
  EXPECT_EQ(trace[1], place + "SelectMicrophone:\tdualos");
  EXPECT_EQ(trace[2],
            "plugin/api/linux/AacSource.cpp/#/AppStringCreate0:\ttype=pipeline,layout={pv-pcm-src:"
            "+PcmFilter:rate=48000+aac-encoder:name=aac,profile=MAIN,br=96,ch=1,bw=-7+ShmSink:"
            "name=shmsink,session_name=" +
                _session + ",init=true}");
}

TEST_F(Layouts, OfASnapshotAreLetterForLetter) {
  const auto snap = MakeKnown<api::streaming::IPhotography>("ApiJpegSnap-dualos");
  snap->SetQP(27);
  snap->SelectSensor(3);  // nowhere in the text
  const Lines trace = OpenAndTrace(snap, "5ac0");
  EXPECT_EQ(trace[1],
            "plugin/api/linux/JpegSnap.cpp/#/AppStringCreate0:\ttype=pipeline,layout={"
            "pv-yuv-src-adv:w=1920,h=1080+FrameTrigger:name=trig,vbrc=" +
                _address + "+jpeg-encoder:name=jpeg,qp=27,vbrc=" + _address +
                ",clk=400000+ShmSink:name=shmsink,session_name=" + _session + ",init=true}");
  EXPECT_EQ(trace.back(),
            "plugin/api/linux/common/StreamApp.cpp/#/AppCreate:\ttype=Application,layout={"
            "type=pipeline,layout={ShmSource:name=shmsrc,session_name=" +
                _session +
                ",apphd=0x5ac0,init=true+IOSinkPerFrame:name=fifo,dbg=true,newFrame=true,"
                "sendmsg={iosink={oper=AfterOpen,send={upward}},newframe={oper=AfterClose,send={"
                "upward}}},urlLayout={type=UrlSimple,vbrc=" +
                _address + "},vbrc=" + _address + ",vbrcidx=0}},status=ready");
}

// "@" stands for the block's address, "$" for the session; each chain stands in the trace of the
// class that composes it.
TEST_F(Layouts, OfTheOtherSourcesShareWhatTheyShare) {
  const std::string h264 =
      "+h264-encoder-dma:name=h264,goptype=IPPP,gop=15,qp=21,vbrc=@,fr=25,clk=400000";
  const struct {
    const char* name;
    const char* file;
    const char* middle;  // "&" stands for the encoder
  } rows[] = {
      {"ApiH264SourceTrigger-dualos-trigger-pull", "H264SourceTrigger",
       "+FrameTrigger:name=trig,vbrc=@&"},
      {"ApiH264Source-vbrc-dualos-pull", "H264SourceVbrc",
       "+FrameDroper:name=fdrop,vbrc=@&+H264VBrc:name=vbrc,vbrc=@"},
      {"ApiH264Source-dualos-vbrc-trigger-pull", "H264SourceVbrcTrigger",
       "+FrameTrigger:name=trig,vbrc=@+FrameDroper:name=fdrop,vbrc=@&+H264VBrc:name=vbrc,vbrc=@"},
      {"ApiJpegSource-dualos-cbrc-pull", "JpegSource",
       "+jpeg-encoder-dma:name=jpeg,qp=21,vbrc=@,fr=25,clk=400000"},
      {"ApiJpegSourceTrigger-dualos-trigger-pull", "JpegSourceTrigger",
       "+FrameTrigger:name=trig,vbrc=@+jpeg-encoder:name=jpeg,vbrc=@,fr=25,clk=400000"},
      {"ApiYuvSource-dualos-pull", "YuvSource", ",fmt="},
  };
  for (const auto& [name, file, middle] : rows) {
    const auto source = MakeKnown<api::streaming::common::IStreamOutput>(name);
    ASSERT_TRUE(source) << name;
    if (auto* control = dynamic_cast<api::streaming::common::IBitRateControl*>(source.get())) {
      control->SetQP(21);
      control->SetFrameRateMaximum(25);
    }
    if (auto* yuv = dynamic_cast<api::streaming::IYuvSource*>(source.get())) {
      yuv->SelectSensor(3);  // nowhere in the text
      yuv->SetFormat("");    // stored unchecked
      yuv->SetFormat(nullptr);
    }
    std::string chain = std::string("type=pipeline,layout={pv-yuv-src-adv:w=1920,h=1080") + middle +
                        "+ShmSink:name=shmsink,session_name=$,init=true}";
    chain = Fill(Fill(Fill(chain, '&', h264), '@', _address), '$', _session);
    EXPECT_EQ(OpenAndTrace(source, "1")[1],
              std::string("plugin/api/linux/") + file + ".cpp/#/AppStringCreate0:\t" + chain);
  }
}

}  // namespace
}  // namespace tessel::tests
