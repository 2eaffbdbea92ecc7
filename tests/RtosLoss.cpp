// The real-time side ends, fails or lies while streams run: an event to survive.
#include <thread>

#include <signal.h>

#include "Fixture.h"

namespace tessel::tests {
namespace {

class RtosLoss : public StreamTest {};

TEST_F(RtosLoss, AProgramThatNeverAnswersIsGivenUpAfterTheStartTimeout) {
  UseOddRtos("mutes");
  Use([](auto& options) { options.start_timeout = std::chrono::milliseconds(300); });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(Make()->Open());
  const auto time = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(time, std::chrono::milliseconds(300));
  EXPECT_LT(time, std::chrono::seconds(8)) << "the usual time-out";
  EXPECT_TRUE(IsLogged("300 ms"));
}

TEST_F(RtosLoss, IsToldOnceAndOpenWorksAgainAfterClose) {
  const Camera camera = Make();
  Listen(*camera);
  ASSERT_TRUE(camera->ChangeState(State::kPlay));
  ASSERT_NE(NextFrame(camera), nullptr);
  KillRtos();
  while (NextFrame(camera) != nullptr) {  // what was in the ring may still come
  }
  EXPECT_EQ(Told(), Lines{"the real-time side is gone"});
  EXPECT_TRUE(camera->Stop());
  EXPECT_FALSE(camera->Start()) << "there is nothing to start";
  EXPECT_TRUE(camera->Close());
  EXPECT_EQ(quill::host::RtosProcessId(), 0);
  ASSERT_TRUE(camera->Open() && camera->Start());
  const Frame frame = NextFrame(camera);
  EXPECT_TRUE(frame && frame->isKey);
}

TEST_F(RtosLoss, TheMessageCallbackMayReopenAPushedStream) {
  std::atomic<bool> is_reopened{false};
  Event again;
  const Camera camera = Make(kPush);
  camera->RegisterOutputCallback([&](Frame&) {
    if (is_reopened) again.Set();
    return true;
  });
  camera->RegisterMessageCallback([&](const char*) {
    return is_reopened = camera->Close() && camera->Open() && camera->Start();
  });
  ASSERT_TRUE(camera->Open() && camera->Start());
  KillRtos();
  EXPECT_TRUE(again.Wait());
  EXPECT_TRUE(camera->Close());
}

TEST_F(RtosLoss, AnEndToldBeforeTheLastFramesArePushedDoesNotCostThem) {
  UseOddRtos("ends");
  const Camera camera = Make(kPush);
  Listen(*camera);
  std::atomic<int> frames{0};
  camera->RegisterOutputCallback([&](Frame&) {
    EXPECT_EQ(Told(), Lines{"end of input"});
    return ++frames > 0;
  });
  ASSERT_TRUE(camera->ChangeState(State::kPlay));
  EXPECT_TRUE(Eventually([&] { return frames == 3; })) << frames;
  EXPECT_TRUE(camera->Close());
}

TEST_F(RtosLoss, EndAndFailureAreToldAndAllFramesBeforeArePulled) {
  for (const auto& [behaviour, told] :
       {std::pair("ends", "end of input"), {"fails", "element \"pv-yuv-src-adv\": lens=gone"}}) {
    UseOddRtos(behaviour);
    const Camera camera = Make();
    Listen(*camera);
    ASSERT_TRUE(camera->ChangeState(State::kPlay));
    for (std::uint32_t i = 0; i < 3; ++i) {
      const Frame frame = NextFrame(camera);
      ASSERT_TRUE(frame && frame->seq == i);
    }
    EXPECT_EQ(NextFrame(camera), nullptr);
    EXPECT_EQ(Told(), Lines{told});
    EXPECT_NE(quill::host::RtosProcessId(), 0) << "it serves on";
    KillRtos();
  }
}

// A chain that is held up gives captures up, and counts them like those without a slot.
TEST_F(RtosLoss, CapturesThatComeTooLateAreCountedAndMissingInTheSequence) {
  for (const char* name : {kPull, "ApiH264Source-vbrc-dualos-pull", "ApiPcmSource-dualos-pull"}) {
    const auto stream = quill::host::Create<IStreamOutput>(name);
    SetSize(*stream, 160, 120);
    if (auto* h264 = dynamic_cast<api::streaming::IH264Source*>(stream.get())) {
      h264->SetFrameRate(10);
    }
    ASSERT_TRUE(stream->Open() && stream->Start());
    Frame frame;
    ASSERT_TRUE(stream->PullFrame(frame, true));
    kill(quill::host::RtosProcessId(), SIGSTOP);
    std::this_thread::sleep_for(std::chrono::milliseconds(900));
    kill(quill::host::RtosProcessId(), SIGCONT);
    std::uint64_t missing = 0;
    for (std::uint32_t pulled = 1; pulled < 60; ++pulled) {
      missing = frame->seq + 1 - pulled;
      if (missing > 15 && missing == Counters().dropped) break;
      ASSERT_TRUE(stream->PullFrame(frame, true));
    }
    EXPECT_GT(missing, 15U) << name;
    EXPECT_EQ(Counters().dropped, missing) << name;
    EXPECT_TRUE(stream->Close());
  }
}

TEST_F(RtosLoss, AStartThatIsNotAnsweredLeavesNothingPlaying) {
  const Camera camera = Make();
  ASSERT_TRUE(camera->Open());
  const pid_t process = quill::host::RtosProcessId();
  Use([](auto& options) { options.command_timeout = std::chrono::milliseconds(100); });
  kill(process, SIGSTOP);
  EXPECT_FALSE(camera->Start());
  auto pull = std::async(std::launch::async, [&] { return NextFrame(camera); });
  EXPECT_EQ(pull.wait_for(kDeadline), std::future_status::ready) << "it waits for frames";
  kill(process, SIGCONT);
  Use([](auto& options) { options.command_timeout = kDeadline; });
  EXPECT_TRUE(camera->Close());
  EXPECT_EQ(pull.get(), nullptr);
}

}  // namespace
}  // namespace tessel::tests
