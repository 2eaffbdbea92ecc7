// Several threads at one stream: its callbacks, its client, and which of them waits for which.
#include <thread>
#include <tuple>

#include "Fixture.h"

namespace tessel::tests {
namespace {

class Concurrency : public StreamTest {};

TEST_F(Concurrency, ClientWaitsForACallbackThatHasStoppedOrClosedItsStream) {
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
    if (is_message) KillFarSide();
    ASSERT_TRUE(ended.Wait() && is_running);
    auto end =
        std::async(std::launch::async, [&, act = by_client] { return act(camera) && !is_running; });
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    goes_on.Set();
    EXPECT_TRUE(end.get());
  }
}

TEST_F(Concurrency, PullThatDoesNotBlockReturnsWhileAnotherOneWaits) {
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

TEST_F(Concurrency, PauseHoldsDeliveryBackUntilPlayGoesOn) {
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

TEST_F(Concurrency, DestructionEndsAStreamThatItsCallbackReopens) {
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

}  // namespace
}  // namespace tessel::tests
