// A stream from creation to destruction: states, failures and the lines that report them, messages,
// and which of its threads waits for which.
#include <random>
#include <thread>
#include <tuple>

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
    EXPECT_STREQ(args.Get("timeout"), "1000000000");
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
  // A message that is being told may hold one for a moment.
  EXPECT_TRUE(Eventually([] { return quill::host::Streams().empty(); }));
  EXPECT_NE(quill::host::RtosProcessId(), 0) << "it serves on";
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

TEST_F(Lifecycle, OutputCallbackMayThrow) {
  Event again;
  std::atomic<int> frames{0};
  const Camera camera = OpenPush([&](Frame&) -> bool {
    if (++frames > 1) again.Set();
    throw 5;
  });
  EXPECT_TRUE(again.Wait() && camera->Close());
  EXPECT_TRUE(IsLogged("!callback,a callback has thrown"));
}

TEST_F(Lifecycle, MessagesReachTheLastCallbackOnAHostThreadWhileOpen) {
  const Camera camera = Make();
  std::string heard;
  const auto listen = [&](const char* mark) {
    camera->RegisterMessageCallback(
        [&heard, mark, client = std::this_thread::get_id()](const char* text) {
          EXPECT_NE(std::this_thread::get_id(), client);
          heard += std::string(mark) + text;
          if (text == std::string("throw")) throw std::runtime_error("spilled");
          return text != std::string("no");
        });
  };
  listen("first:");
  listen("second:");
  EXPECT_FALSE(camera->SendMessage("early"));
  ASSERT_TRUE(camera->Open());
  EXPECT_FALSE(camera->SendMessage("no") || camera->SendMessage("throw"));
  EXPECT_TRUE(IsLogged("!callback,a callback has thrown: spilled"));
  EXPECT_TRUE(camera->SendMessage("yes"));
  camera->RegisterMessageCallback(nullptr);
  EXPECT_FALSE(camera->SendMessage("nobody"));
  EXPECT_TRUE(camera->Close());
  listen("closed:");
  EXPECT_FALSE(camera->SendMessage("late"));
  EXPECT_EQ(heard, "second:nosecond:throwsecond:yes");
}

TEST_F(Lifecycle, ClientWaitsForACallbackThatHasStoppedOrClosedItsStream) {
  using Action = bool (*)(Camera&);
  constexpr Action kStop = [](Camera& camera) { return camera->Stop(); };
  constexpr Action kClose = [](Camera& camera) { return camera->Close(); };
  constexpr Action kDown = [](Camera& camera) { return camera->ChangeDown(State::kNull); };
  constexpr Action kDestroy = [](Camera& camera) { return camera.reset(), true; };
  const std::tuple<bool, Action, Action> rows[] = {{false, kStop, kStop},
                                                   {false, kStop, kDestroy},
                                                   {false, kClose, kDown},
                                                   {true, kClose, kDown}};
  for (const auto& [is_message, in_callback, by_client] : rows) {
    Event started;
    Event ended;
    Event goes_on;
    std::atomic<bool> is_running{false};
    Camera camera = Make(is_message ? kPull : kPush);
    const auto call = [&, act = in_callback] {
      is_running = started.Wait() && act(camera);
      ended.Set();
      is_running = !goes_on.Wait();
      return true;
    };
    camera->RegisterOutputCallback([&](Frame&) { return call(); });
    camera->RegisterMessageCallback([&](const char*) { return call(); });
    ASSERT_TRUE(camera->Open() && camera->Start());
    started.Set();
    if (is_message) KillRtos();
    ASSERT_TRUE(ended.Wait() && is_running);
    auto end =
        std::async(std::launch::async, [&, act = by_client] { return act(camera) && !is_running; });
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    goes_on.Set();
    EXPECT_TRUE(end.get());
  }
}

TEST_F(Lifecycle, PullThatDoesNotBlockReturnsWhileAnotherOneWaits) {
  const Camera camera = OpenPull();
  const std::vector<Frame> kept = HoldAllSlots(camera);
  auto waits = std::async(std::launch::async, [&] { return NextFrame(camera) != nullptr; });
  auto looks = std::async(std::launch::async, [&] {
    // Until the other one waits for certain: nothing tells of that.
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    Frame frame;
    bool has_frame = false;
    while (std::chrono::steady_clock::now() < end) has_frame |= camera->PullFrame(frame, false);
    return has_frame;
  });
  EXPECT_EQ(looks.wait_for(kDeadline), std::future_status::ready) << "it waits for the other one";
  EXPECT_TRUE(camera->Stop());
  EXPECT_FALSE(looks.get() || waits.get());
}

TEST_F(Lifecycle, DestructionEndsAStreamThatItsCallbackReopens) {
  for (int round = 0; round < 20; ++round) {
    Camera camera = Make(kPush);
    auto* source = camera.get();
    Event started;
    Event reopened;
    camera->RegisterOutputCallback([&, source](Frame&) {
      if (started.Wait() && source->Close() && source->Open()) source->Start();
      reopened.Set();
      return true;
    });
    ASSERT_TRUE(camera->Open() && camera->Start());
    started.Set();
    ASSERT_TRUE(round % 2 == 0 || reopened.Wait());
    camera.reset();
    ASSERT_TRUE(Eventually([] { return quill::host::Streams().empty(); })) << "round " << round;
  }
}

TEST_F(Lifecycle, PullEndsInAPauseThatComesAfterTheLastFrame) {
  UseOddRtos("ends");
  const Camera camera = OpenPull();
  while (NextFrame(camera) != nullptr) {
  }
  EXPECT_TRUE(camera->ChangeUp(State::kPause));
  EXPECT_EQ(NextFrame(camera), nullptr);
  EXPECT_TRUE(camera->Close());
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
  UseOddRtos("counts");
  auto* source = new OwnSource(true);
  AttrSet set;
  ASSERT_TRUE(source->InitObject(set));
  const std::string session = source->Session();
  EXPECT_TRUE(source->configure(set) && source->Session() != session) << "a new one each time";
  EXPECT_TRUE(source->Open() && source->Open() && !source->IsStart());
  EXPECT_EQ(source->Applications(), 1U);
  EXPECT_EQ(quill::host::Streams().size(), 1U);
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
