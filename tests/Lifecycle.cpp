// A stream from creation to destruction: states, failures, and the lines that tell of them.
#include <random>
#include <set>

#include "common/StreamAppOutput.h"
#include "Fixture.h"

namespace tessel::tests {
namespace {

using api::streaming::IH264Source;
using Move = bool (*)(IH264Source&);

const std::string kApp = "plugin/api/linux/common/StreamApp.cpp/#/";
const std::string kOutput = "plugin/api/linux/common/StreamAppOutput.cpp/#/";
const std::string kUpFails = kApp + "AppStatusUp:\t!_app->Set(\"statusup\",sts)";
const std::string kDownFails = kApp + "AppStatusDown:\t!_app->Set(\"statusdown\",sts)";
const std::string kCreateFails = kApp + "Open:\t!AppCreate()";
const std::string kRunFails = kApp + "AppCreate:\t!Factory::Globle().Run(\"shm0_cmd\",ap)";

class Lifecycle : public StreamTest {};

TEST_F(Lifecycle, FailedChecksAreLoggedWhole) {
  const struct {
    Move move;
    Lines lines;
  } rows[] = {
      {[](IH264Source& camera) { return camera.Start(); },
       {kUpFails, kApp + "Start:\t!AppStatusUp(\"play\")"}},
      {[](IH264Source& camera) { return camera.Stop(); }, {kApp + "Stop:\t!_app"}},
      {[](IH264Source& camera) { return camera.Close(); },
       {kDownFails, kApp + "Close:\t!AppStatusDown(\"null\")"}},
  };
  for (const auto& row : rows) {
    row.move(*Make());
    EXPECT_EQ(LogLines(), row.lines);
  }
}

TEST_F(Lifecycle, LinesAreColouredOnATerminal) {
  Make()->Stop();
  EXPECT_EQ(ColouredLines(quill::stream::kError),
            Lines{"\033[31m" + kApp + "Stop:\t!_app\n\033[0m"});
}

TEST_F(Lifecycle, OpeningTwiceCreatesOnce) {
  std::multiset<std::string> commands;
  std::string timeout;
  Replace("shm0_cmd", [&](AttrSet& args, const Command& real) {
    commands.insert(args.Get("cmd"));
    if (commands.size() == 1) timeout = args.Get("timeout");
    return real(args);
  });
  const Camera camera = Make();
  EXPECT_TRUE(camera->Open() && camera->Open());
  EXPECT_EQ(commands.count("tesselCreate"), 1U);
  EXPECT_EQ(timeout, "1000000000");
  EXPECT_TRUE(camera->Close());
  EXPECT_EQ(commands.count("tesselDestroy"), 1U);
  EXPECT_TRUE(camera->Open());
  EXPECT_EQ(commands.count("tesselCreate"), 2U);
}

TEST_F(Lifecycle, AFailedCreationIsToldAndLeavesNothing) {
  const struct {
    bool done;
    const char* handle;
    Lines lines;
  } rows[] = {
      {false, "5", {kRunFails, kCreateFails}},
      {true, nullptr, {kApp + "AppCreate:\t!app0", kCreateFails}},
      {true, "0x0", {kApp + "AppCreate:\t!app0", kCreateFails}},
      {true, "handle", {kApp + "AppCreate:\t!app0", kCreateFails}},
  };
  const Camera camera = Make();
  for (const auto& row : rows) {
    Replace("shm0_cmd", [&row](AttrSet& args, const Command&) {
      if (row.handle != nullptr) args.Add("object_base", row.handle);
      return row.done;
    });
    LogLines();
    EXPECT_FALSE(camera->Open());
    EXPECT_EQ(LogLines(), row.lines);
    EXPECT_TRUE(camera->Stop());
    EXPECT_EQ(LogLines(), Lines{kApp + "Stop:\t!_app"}) << "no application is left";
    EXPECT_EQ(camera->CurrentState(), State::kNull);
  }
}

TEST_F(Lifecycle, ARefusedLayoutIsToldByElementAndValue) {
  const Camera camera = Make();
  camera->SetQP(99);
  EXPECT_FALSE(camera->Open());
  EXPECT_EQ(LogLines(), (Lines{"RunShm0Command:\t!far_side->Run("
                               "args),element \"h264-encoder-dma\": qp=99 outside 0..51",
                               kRunFails, kCreateFails}));
  camera->SetQP(0);
  EXPECT_TRUE(camera->Open()) << "the next one is judged anew";
}

TEST_F(Lifecycle, ALayoutThatCannotBeReadIsToldBeforeAnythingIsSent) {
  Replace("shm0_cmd", [](AttrSet&, const Command&) -> bool { throw "never called"; });
  const Camera camera = Make();
  camera->SetGopType("I}P");
  EXPECT_FALSE(camera->Open());
  EXPECT_EQ(LogLines(), (Lines{kApp + "AppCreate:\t!ap.Parse(appstr0.c_str())", kCreateFails}));
}

TEST_F(Lifecycle, SourcesMayBeDestroyedInAnyStateAndOrder) {
  constexpr unsigned kSeed = 99;
  std::mt19937 random(kSeed);
  std::vector<Camera> cameras(3);
  for (int round = 0; round < 40; ++round) {
    Camera& camera = cameras[random() % cameras.size()];
    camera = Make(random() % 2 == 0 ? kPull : kPush);
    ASSERT_TRUE(camera->ChangeState(static_cast<State>(random() % 4))) << "seed " << kSeed;
  }
  cameras.clear();
  EXPECT_TRUE(quill::host::Streams().empty());
  EXPECT_NE(quill::host::FarSideProcess(), 0) << "it serves on";
}

TEST_F(Lifecycle, SetTakesAllOrNothing) {
  const Camera camera = Make();
  EXPECT_TRUE(camera->Set(""));
  EXPECT_TRUE(camera->Set("name=front,enable=true"));
  EXPECT_STREQ(camera.Object()->Name(), "front");
  EXPECT_EQ(LogLines(), Lines());
  for (const char* text : {"name=rear,colour=red", "name=rear,enable=perhaps", "name=rear,"}) {
    EXPECT_FALSE(camera->Set(text)) << text;
    EXPECT_STREQ(camera.Object()->Name(), "front") << text;
  }
  EXPECT_EQ(LogLines(), (Lines{"fromAttrSet:\t!property,no such property: colour",
                               "ReadEnable:\t!ConvertToImpl(enable,enabled),"
                               "enable=perhaps",
                               "fromString:\t!set.Parse(text),position 10: "
                               "expected a pair after \",\""}));
}

TEST_F(Lifecycle, ADisabledStreamDoesNotGoUp) {
  const Camera camera = Make();
  Frame frame;
  const auto goes_up = [&] { return camera->ChangeUp(State::kReady) || camera->Open(); };
  EXPECT_TRUE(camera->Set("enable=off"));
  EXPECT_FALSE(goes_up());
  EXPECT_TRUE(camera->Set("enable=on"));
  EXPECT_TRUE(camera->Open() && camera->Set("enable=off"));
  EXPECT_FALSE(camera->Start());
  EXPECT_TRUE(camera->Set("enable=on"));
  EXPECT_TRUE(camera->Start() && camera->PullFrame(frame, true) && camera->Set("enable=off"));
  EXPECT_FALSE(camera->PullFrame(frame, true));
  EXPECT_TRUE(camera->ChangeDown(State::kNull));
}

TEST_F(Lifecycle, CallbacksRunOnHostThreadsAndMayThrow) {
  std::thread::id on;
  const Camera camera = Make(kPush);
  Event again;
  std::atomic<int> frames{0};
  camera->RegisterMessageCallback([&](const char* text) -> bool {
    on = std::this_thread::get_id();
    if (*text == 'y') return true;
    throw std::runtime_error("spilled");
  });
  camera->RegisterOutputCallback([&](Frame&) -> bool {
    if (++frames > 1) again.Set();
    throw 5;
  });
  ASSERT_TRUE(camera->Open());
  EXPECT_TRUE(camera->SendMessage("yes"));
  EXPECT_FALSE(on == std::this_thread::get_id());
  EXPECT_FALSE(camera->SendMessage("no"));
  EXPECT_TRUE(IsLogged("!callback,a callback has thrown: spilled"));
  EXPECT_TRUE(camera->Start() && again.Wait());
  EXPECT_TRUE(camera->Close());
  EXPECT_TRUE(IsLogged("!callback,a callback has thrown"));
}

TEST_F(Lifecycle, MessagesReachTheLastCallbackWhileOpen) {
  const Camera camera = Make();
  std::string first;
  std::string second;
  camera->RegisterMessageCallback([&](const char* text) { return first += text, true; });
  camera->RegisterMessageCallback([&](const char* text) {
    second += text;
    return second != "no";
  });
  EXPECT_FALSE(camera->SendMessage("early"));
  ASSERT_TRUE(camera->Open());
  EXPECT_FALSE(camera->SendMessage("no"));
  EXPECT_TRUE(camera->SendMessage(",yes"));
  camera->RegisterMessageCallback(nullptr);
  EXPECT_FALSE(camera->SendMessage("nobody"));
  EXPECT_TRUE(camera->Close());
  camera->RegisterMessageCallback([&](const char* text) { return first += text, true; });
  EXPECT_FALSE(camera->SendMessage("late"));
  EXPECT_EQ(first + "/" + second, "/no,yes");
}

// Shows what a source keeps to itself.
class OwnSource : public dualos::StreamAppOutput {
 public:
  using StreamAppOutput::StreamAppOutput;
  std::string AppStringCreate0() override {
    return "type=pipeline,layout={pv-yuv-src-adv+h264-encoder-dma+ShmSink:session_name=" +
           _session_name + "}";
  }
  const std::string& Session() const { return _session_name; }
  std::size_t Applications() const { return Children().Size(); }
};

TEST_F(Lifecycle, EachConfigurationTakesANewSessionName) {
  auto* source = new OwnSource(true);
  EXPECT_EQ(source->Session(), "");
  std::set<std::string> names;
  for (int i = 0; i < 100; ++i) {
    AttrSet set("nosuch=1");  // is not read
    EXPECT_TRUE(source->configure(set));
    names.insert(source->Session());
  }
  EXPECT_EQ(names.size(), 100U);
  EXPECT_FALSE(source->IsStart()) << "never opened";
  source->Release();
}

TEST_F(Lifecycle, IsStartedWhileTheApplicationPlays) {
  UseOddFarSide("counts");
  auto* source = new OwnSource(true);
  AttrSet set;
  ASSERT_TRUE(source->InitObject(set));
  EXPECT_TRUE(source->Open() && !source->IsStart());
  EXPECT_EQ(source->Applications(), 1U);
  EXPECT_TRUE(source->Start() && source->IsStart());
  EXPECT_TRUE(source->Stop() && !source->IsStart());
  EXPECT_TRUE(source->Close() && !source->IsStart());
  EXPECT_EQ(source->Applications(), 0U) << "closing destroys the application";
  EXPECT_TRUE(source->Open() && source->Start());
  source->Release();  // playing
}

TEST_F(Lifecycle, CallbacksOfTheSinkAreJudged) {
  auto* source = new OwnSource(true);
  EXPECT_FALSE(source->CbOpen(nullptr, nullptr));
  EXPECT_FALSE(source->CbOutput(nullptr));
  auto* sink = new quill::base::Object("sink");
  EXPECT_FALSE(source->CbOpen(sink, nullptr));
  using Pull = std::function<quill::stream::Packet*(bool)>;
  sink->AddValue<Pull>("funcPullBlocking", nullptr);
  EXPECT_FALSE(source->CbOpen(sink, nullptr));
  EXPECT_EQ(LogLines(), (Lines{kOutput + "CbOpen:\t!_sink", kOutput + "CbOutput:\t!pkt",
                               kOutput + "CbOpen:\t!_sink->Get(\"funcPullBlocking\",_funcPull)",
                               kOutput + "CbOpen:\t!_funcPull"}));
  EXPECT_TRUE(source->CbClose());
  source->Release();
  sink->Release();
}

}  // namespace
}  // namespace tessel::tests
