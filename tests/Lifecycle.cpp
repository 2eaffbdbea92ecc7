// A stream from creation to destruction: states, failures, and the lines that report them.
#include <random>
#include <set>

#include "common/StreamAppOutput.h"
#include "Fixture.h"
#include "tessel/IPhotography.h"

namespace tessel::tests {
namespace {

using api::streaming::common::IStreamControl;

const std::string kApp = "plugin/api/linux/common/StreamApp.cpp/#/";
const std::string kOutput = "plugin/api/linux/common/StreamAppOutput.cpp/#/";
const std::string kCreateFails = kApp + "Open:\t!AppCreate()";
const std::string kRunFails = kApp + "AppCreate:\t!Factory::Globle().Run(\"shm0_cmd\",ap)";

class Lifecycle : public StreamTest {};

TEST_F(Lifecycle, FailedChecksAreLoggedWholeAndRed) {
  Make()->Start();
  EXPECT_EQ(LogLines(), (Lines{kApp + "AppStatusUp:\t!_app->Set(\"statusup\",sts)",
                               kApp + "Start:\t!AppStatusUp(\"play\")"}));
  Make()->Close();
  EXPECT_EQ(LogLines(), (Lines{kApp + "AppStatusDown:\t!_app->Set(\"statusdown\",sts)",
                               kApp + "Close:\t!AppStatusDown(\"null\")"}));
  Make()->Stop();
  EXPECT_EQ(ColouredLines(quill::stream::kError),
            Lines{"\033[31m" + kApp + "Stop:\t!_app\n\033[0m"});
}

TEST_F(Lifecycle, OpeningTwiceCreatesOneApplication) {
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

TEST_F(Lifecycle, FailedCreationIsLoggedAndLeavesNothing) {
  const Camera camera = Make();
  const auto expect_failure = [&camera](const std::string& line) {
    LogLines();
    EXPECT_FALSE(camera->Open());
    EXPECT_EQ(LogLines(), (Lines{line, kCreateFails}));
    EXPECT_TRUE(camera->Stop());
    EXPECT_EQ(LogLines(), Lines{kApp + "Stop:\t!_app"}) << "no application is left";
    EXPECT_EQ(camera->CurrentState(), State::kNull);
  };
  Replace("shm0_cmd", [](AttrSet& args, const Command&) {
    args.Add("object_base", "5");
    return false;
  });
  expect_failure(kRunFails);
  for (const char* handle : {"", "0x0", "handle"}) {
    Replace("shm0_cmd", [handle](AttrSet& args, const Command&) {
      return *handle == 0 || args.Add("object_base", handle);
    });
    expect_failure(kApp + "AppCreate:\t!app0");
  }
  Replace("shm0_cmd", [](AttrSet&, const Command&) -> bool { throw "never called"; });
  camera->SetGopType("I}P");
  expect_failure(kApp + "AppCreate:\t!ap.Parse(appstr0.c_str())");
}

TEST_F(Lifecycle, StreamsMayBeDestroyedInAnyStateAndOrder) {
  constexpr unsigned kSeed = 99;
  constexpr const char* kNames[] = {kPull, kPush, "ApiJpegSnap-dualos", "ApiPhotography-dualos"};
  Use([](auto& options) { options.session_bytes = std::size_t{16} << 20; });
  std::mt19937 random(kSeed);
  std::vector<quill::host::Handle<IStreamControl>> streams(3);
  for (int round = 0; round < 40; ++round) {
    const char* name = kNames[random() % std::size(kNames)];
    streams[random() % streams.size()] = quill::host::Create<IStreamControl>(name);
    for (const auto& stream : streams) {
      const auto state = static_cast<State>(random() % 4);
      ASSERT_TRUE(!stream || stream->ChangeState(state)) << "seed " << kSeed;
      auto* taker = dynamic_cast<api::streaming::IPhotography*>(stream.get());
      if (taker != nullptr) taker->Snap("file:///dev/null", false);  // asks for its URL later
    }
  }
  streams.clear();
  EXPECT_TRUE(Eventually([] { return quill::host::Streams().empty(); }));
  EXPECT_NE(quill::host::FarSideProcess(), 0) << "it serves on";
}

TEST_F(Lifecycle, DisabledStreamGoesDownButNotUp) {
  const Camera camera = Make();
  Frame frame;
  EXPECT_TRUE(camera->Set("enable=off"));
  EXPECT_FALSE(camera->ChangeUp(State::kReady) || camera->Open());
  EXPECT_TRUE(camera->Set("enable=on"));
  EXPECT_TRUE(camera->Open() && camera->Set("enable=off"));
  EXPECT_FALSE(camera->Start());
  EXPECT_TRUE(camera->Set("enable=on"));
  EXPECT_TRUE(camera->Start() && camera->PullFrame(frame, true) && camera->Set("enable=off"));
  EXPECT_FALSE(camera->PullFrame(frame, true));
  EXPECT_TRUE(camera->ChangeDown(State::kNull));
}

TEST_F(Lifecycle, CallbacksRunOnHostThreadsAndMayThrow) {
  const Camera camera = Make(kPush);
  Event again;
  std::atomic<int> frames{0};
  camera->RegisterMessageCallback([on = std::this_thread::get_id()](const char* text) -> bool {
    EXPECT_FALSE(on == std::this_thread::get_id());
    throw std::runtime_error(text);
  });
  camera->RegisterOutputCallback([&](Frame&) -> bool {
    if (++frames > 1) again.Set();
    throw 5;
  });
  ASSERT_TRUE(camera->Open());
  EXPECT_FALSE(camera->SendMessage("spilled"));
  EXPECT_TRUE(IsLogged("!callback,a callback has thrown: spilled"));
  EXPECT_TRUE(camera->Start() && again.Wait());
  EXPECT_TRUE(camera->Close());
  EXPECT_TRUE(IsLogged("!callback,a callback has thrown"));
}

TEST_F(Lifecycle, MessagesReachTheLastCallbackWhileOpen) {
  const Camera camera = Make();
  std::string heard;
  const auto listen = [&](const char* mark) {
    camera->RegisterMessageCallback([&heard, mark](const char* text) {
      heard += std::string(mark) + text;
      return text != std::string("no");
    });
  };
  listen("first:");
  listen("second:");
  EXPECT_FALSE(camera->SendMessage("early"));
  ASSERT_TRUE(camera->Open());
  EXPECT_FALSE(camera->SendMessage("no"));
  EXPECT_TRUE(camera->SendMessage("yes"));
  camera->RegisterMessageCallback(nullptr);
  EXPECT_FALSE(camera->SendMessage("nobody"));
  EXPECT_TRUE(camera->Close());
  listen("closed:");
  EXPECT_FALSE(camera->SendMessage("late"));
  EXPECT_EQ(heard, "second:nosecond:yes");
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

TEST_F(Lifecycle, IsStartTellsWhetherTheApplicationPlays) {
  UseOddFarSide("counts");
  auto* source = new OwnSource(true);
  AttrSet set;
  ASSERT_TRUE(source->InitObject(set));
  const std::string session = source->Session();
  EXPECT_TRUE(source->configure(set) && source->Session() != session) << "a new one each time";
  EXPECT_TRUE(source->Open() && !source->IsStart());
  EXPECT_EQ(source->Applications(), 1U);
  EXPECT_TRUE(source->Start() && source->IsStart());
  EXPECT_TRUE(source->Stop() && !source->IsStart());
  EXPECT_TRUE(source->Close() && !source->IsStart());
  EXPECT_EQ(source->Applications(), 0U) << "closing destroys the application";
  EXPECT_TRUE(source->Open() && source->Start());
  source->Release();  // playing
}

TEST_F(Lifecycle, SinkWithoutAPullFunctionIsRefused) {
  auto* source = new OwnSource(true);
  auto* sink = new quill::base::Object("sink");
  EXPECT_FALSE(source->CbOpen(nullptr, nullptr) || source->CbOpen(sink, nullptr));
  sink->AddValue<std::function<quill::stream::Packet*(bool)>>("funcPullBlocking", nullptr);
  EXPECT_FALSE(source->CbOpen(sink, nullptr) || source->CbOutput(nullptr));
  EXPECT_EQ(LogLines(), (Lines{kOutput + "CbOpen:\t!_sink",
                               kOutput + "CbOpen:\t!_sink->Get(\"funcPullBlocking\",_funcPull)",
                               kOutput + "CbOpen:\t!_funcPull", kOutput + "CbOutput:\t!pkt"}));
  EXPECT_TRUE(source->CbClose());
  source->Release();
  sink->Release();
}

}  // namespace
}  // namespace tessel::tests
