// Several threads at one stream: its callbacks, its client, and who waits for whom.
#include <thread>

#include "Fixture.h"

namespace tessel::tests {
namespace {

class Concurrency : public StreamTest {};

TEST_F(Concurrency, MessageAndClientMayBothReactToTheLoss) {
  for (int round = 0; round < 5; ++round) {
    Camera camera = Make(kPull);
    camera->RegisterMessageCallback([&](const char*) { return camera->Close(); });
    ASSERT_TRUE(camera->Open() && camera->Start());
    ASSERT_NE(NextFrame(camera), nullptr);
    KillFarSide();
    while (NextFrame(camera) != nullptr) {
    }
    camera->Close();  // whoever comes second finds it closed
    EXPECT_EQ(camera->CurrentState(), State::kNull);
    EXPECT_TRUE(camera->Open() && camera->Start() && NextFrame(camera) != nullptr);
  }
}

// A callback that has stopped its stream may still be at work when somebody else stops or destroys
// it.
TEST_F(Concurrency, StopWaitsForACallbackThatStoppedTheStreamItself) {
  for (const bool destroy : {false, true}) {
    Event stopped;
    std::promise<void> go_on;
    std::atomic<bool> is_running{false};
    Camera camera = Make(kPush);
    camera->RegisterOutputCallback([&](Frame&) {
      is_running = true;
      camera->Stop();
      stopped.Set();
      go_on.get_future().wait();
      is_running = false;
      return true;
    });
    ASSERT_TRUE(camera->Open() && camera->Start());
    ASSERT_TRUE(stopped.Wait());
    auto end = std::async(std::launch::async, [&] {
      destroy ? camera.reset() : static_cast<void>(camera->Stop());
      return is_running.load();
    });
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    go_on.set_value();
    EXPECT_FALSE(end.get());
  }
}

TEST_F(Concurrency, APullThatDoesNotBlockDoesNotWaitForOneThatDoes) {
  const Camera camera = OpenPull();
  ASSERT_TRUE(camera->Stop() && camera->Start());
  const std::vector<Frame> kept = HoldAllSlots(camera);
  auto blocked = std::async(std::launch::async, [&] { return NextFrame(camera) != nullptr; });
  Frame frame;
  auto looks = std::async(std::launch::async, [&] {
    // Until the other one waits for certain: nothing tells of that.
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    bool is_none = true;
    while (std::chrono::steady_clock::now() < end) is_none &= !camera->PullFrame(frame, false);
    return is_none;
  });
  EXPECT_EQ(looks.wait_for(kDeadline), std::future_status::ready) << "it waits for the other one";
  EXPECT_TRUE(camera->Stop());
  EXPECT_TRUE(looks.get());
  EXPECT_FALSE(blocked.get());
  EXPECT_FALSE(camera->PullFrame(frame, true)) << "nothing comes from a stream that is stopped";
}

TEST_F(Concurrency, APauseHoldsDeliveryBack) {
  std::atomic<int> frames{0};
  const Camera camera = Make(kPush);
  camera->RegisterOutputCallback([&](Frame&) { return ++frames > 0; });
  ASSERT_TRUE(camera->ChangeUp(State::kPause));
  const int before = frames;  // those of the moment between start and pause
  ASSERT_TRUE(Eventually([] { return Counters().dropped > 0; })) << "no frame finds room";
  EXPECT_LE(frames, before + 1) << "but for the one that was under way";
  ASSERT_TRUE(camera->ChangeDown(State::kPlay));
  EXPECT_TRUE(Eventually([&] { return frames > before + 5; }));
  EXPECT_TRUE(camera->ChangeUp(State::kPause) && camera->ChangeDown(State::kNull));
}

// The same of one that has closed it, be it told of a loss or of a frame.
TEST_F(Concurrency, CloseWaitsForACallbackThatClosedTheStreamItself) {
  for (const bool is_message : {false, true}) {
    Camera camera = Make(is_message ? kPull : kPush);
    Event started;
    Event closed;
    std::atomic<bool> is_running{false};
    const auto close = [&] {
      is_running = started.Wait() && camera->Close();
      closed.Set();
      static_cast<void>(Event().WaitFor(std::chrono::milliseconds(50)));
      is_running = false;
      return true;
    };
    camera->RegisterOutputCallback([&](Frame&) { return close(); });
    camera->RegisterMessageCallback([&](const char*) { return close(); });
    ASSERT_TRUE(camera->Open() && camera->Start());
    started.Set();
    if (is_message) KillFarSide();
    ASSERT_TRUE(closed.Wait());
    EXPECT_TRUE(camera->ChangeDown(State::kNull));
    EXPECT_FALSE(is_running.load()) << is_message;
  }
}

// Whatever the callback does meanwhile, what is destroyed comes to an end.
TEST_F(Concurrency, ACallbackThatReopensItsStreamDoesNotKeepItAlive) {
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

TEST_F(Concurrency, APauseBehindTheEndHoldsNobodyBack) {
  const Camera camera = OpenPull();
  KillFarSide();
  camera->ChangeUp(State::kPause);
  Frame frame;
  while (camera->PullFrame(frame, true)) {
  }
  EXPECT_TRUE(camera->Close());
}

}  // namespace
}  // namespace tessel::tests
