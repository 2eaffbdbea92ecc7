// The real-time side ends, fails or lies while streams run: an event to survive.
#include <thread>

#include <signal.h>

#include "Fixture.h"
#include "OddFarSide.h"
#include "tessel/IPcmSource.h"

namespace tessel::tests {
namespace {

class FarSideLoss : public StreamTest {
 protected:
  // A camera whose message callback keeps what it is told.
  Camera MakeListening(const char* name) {
    Camera camera = Make(name);
    camera->RegisterMessageCallback([this](const char* text) {
      _texts.push_back(text);  // guarded by the event
      _told.Set();
      return true;
    });
    return camera;
  }
  Lines Told() { return _told.Wait() ? _texts : Lines{"nothing"}; }

 private:
  Lines _texts;
  Event _told;
};

TEST_F(FarSideLoss, OneThatNeverAnswersIsGivenUpAfterTheStartTimeout) {
  UseOddFarSide("mutes");
  Use([](auto& options) { options.start_timeout = std::chrono::milliseconds(300); });
  const Camera camera = Make();
  LogLines();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(camera->Open());
  const auto time = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(time, std::chrono::milliseconds(300));
  EXPECT_LT(time, std::chrono::seconds(8)) << "the usual time-out";
  EXPECT_TRUE(IsLogged("300 ms"));
}

TEST_F(FarSideLoss, IsToldOnceAndOpenWorksAgainAfterClose) {
  const Camera camera = MakeListening(kPull);
  ASSERT_TRUE(camera->ChangeState(State::kPlay));
  ASSERT_NE(NextFrame(camera), nullptr);
  KillFarSide();
  while (NextFrame(camera) != nullptr) {  // what was in the ring may still come
  }
  EXPECT_EQ(Told(), Lines{"the real-time side is gone"});
  EXPECT_TRUE(camera->Stop());
  EXPECT_FALSE(camera->Start()) << "there is nothing to start";
  EXPECT_TRUE(camera->Close());
  EXPECT_EQ(quill::host::FarSideProcess(), 0);
  ASSERT_TRUE(camera->Open() && camera->Start());
  const Frame frame = NextFrame(camera);
  ASSERT_NE(frame, nullptr);
  EXPECT_TRUE(frame->isKey);
}

TEST_F(FarSideLoss, EndsAPushedStreamThatMayBeReopenedFromItsMessage) {
  std::atomic<bool> is_reopened{false};
  Event again;
  const Camera camera = Make(kPush);
  camera->RegisterOutputCallback([&](Frame&) {
    if (is_reopened) again.Set();
    return true;
  });
  Event reopened;
  camera->RegisterMessageCallback([&](const char*) {
    EXPECT_TRUE(camera->Close());
    is_reopened = true;
    EXPECT_TRUE(camera->Open() && camera->Start());
    reopened.Set();
    return true;
  });
  ASSERT_TRUE(camera->ChangeState(State::kPlay));
  KillFarSide();
  EXPECT_TRUE(reopened.Wait());
  EXPECT_TRUE(again.Wait());
  EXPECT_TRUE(camera->Close());
}

TEST_F(FarSideLoss, AnEndThatIsToldBeforeTheLastFramesDoesNotCostThem) {
  UseOddFarSide("ends");
  const Camera camera = MakeListening(kPush);
  std::atomic<int> frames{0};
  camera->RegisterOutputCallback([&](Frame&) {
    EXPECT_EQ(Told(), Lines{"end of input"});
    return ++frames > 0;
  });
  ASSERT_TRUE(camera->ChangeState(State::kPlay));
  EXPECT_TRUE(Eventually([&] { return frames == 3; })) << frames;
  EXPECT_TRUE(camera->Close());
}

class EndOfInput : public FarSideLoss, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Of, EndOfInput, ::testing::Values("ends", "fails"),
                         [](const auto& instance) { return std::string(instance.param); });

TEST_P(EndOfInput, IsToldAndDeliversWhatCameBefore) {
  UseOddFarSide(GetParam());
  const Camera camera = MakeListening(kPull);
  ASSERT_TRUE(camera->ChangeState(State::kPlay));
  for (std::uint32_t i = 0; i < 3; ++i) {
    const Frame frame = NextFrame(camera);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->seq, i);
  }
  EXPECT_EQ(NextFrame(camera), nullptr);
  const bool ends = std::string(GetParam()) == "ends";
  EXPECT_EQ(Told(), Lines{ends ? "end of input" : "element \"pv-yuv-src-adv\": lens=gone"});
  EXPECT_NE(quill::host::FarSideProcess(), 0) << "it serves on";
}

// A chain that is held up gives captures up, and says so like those without a slot.
TEST_F(FarSideLoss, CapturesThatComeTooLateAreCountedAndMissingInTheSequence) {
  const auto expect_gap = [](const auto& stream) {
    ASSERT_TRUE(stream && stream->Open() && stream->Start());
    Frame frame;
    ASSERT_TRUE(stream->PullFrame(frame, true));
    kill(quill::host::FarSideProcess(), SIGSTOP);
    std::this_thread::sleep_for(std::chrono::milliseconds(900));
    kill(quill::host::FarSideProcess(), SIGCONT);
    std::uint64_t missing = 0;
    for (std::uint32_t pulled = 1; pulled < 60; ++pulled) {
      missing = frame->seq + 1 - pulled;
      if (missing > 15 && missing == Counters().dropped) break;
      ASSERT_TRUE(stream->PullFrame(frame, true));
    }
    EXPECT_GT(missing, 15U);
    EXPECT_EQ(Counters().dropped, missing);
    EXPECT_TRUE(stream->Close());
  };
  expect_gap(Make());
  const Camera thinned = Make("ApiH264Source-vbrc-dualos-pull");
  thinned->SetFrameRate(10);
  expect_gap(thinned);
  expect_gap(quill::host::Create<api::streaming::IPcmSource>("ApiPcmSource-dualos-pull"));
}

TEST_F(FarSideLoss, AStartThatIsNotAnsweredLeavesNothingPlaying) {
  const Camera camera = Make();
  ASSERT_TRUE(camera->Open());
  const pid_t process = quill::host::FarSideProcess();
  Use([](auto& options) { options.command_timeout = std::chrono::milliseconds(100); });
  kill(process, SIGSTOP);
  EXPECT_FALSE(camera->Start());
  auto pull = std::async(std::launch::async, [&] { return NextFrame(camera) != nullptr; });
  EXPECT_EQ(pull.wait_for(kDeadline), std::future_status::ready) << "it waits for frames";
  kill(process, SIGCONT);
  Use([](auto& options) { options.command_timeout = kDeadline; });
  EXPECT_TRUE(camera->Close());
  EXPECT_FALSE(pull.get());
}

TEST_F(FarSideLoss, NoiseInTheRingIsCountedAndHarmsNobody) {
  UseOddFarSide("scribbles");
  const Camera camera = MakeListening(kPull);
  ASSERT_TRUE(camera->ChangeState(State::kPlay));
  volatile std::uint64_t sum = 0;  // touched, whatever it says
  while (const Frame frame = NextFrame(camera)) {
    for (std::uint32_t i = 0; i < frame->size; ++i) sum = sum + frame->data[i];
  }
  EXPECT_EQ(Told(), Lines{"end of input"});
  EXPECT_GT(Counters().refused, 0U);
  EXPECT_EQ(Counters().held, 0U);
}

}  // namespace
}  // namespace tessel::tests
