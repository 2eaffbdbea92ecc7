// Every video source of the catalogue, from the camera to the client; triggers; frame rates; the
// source without a camera.
#include <filesystem>
#include <random>

#include <unistd.h>

#include "Clock.h"
#include "Decoder.h"
#include "Fixture.h"
#include "tessel/IJpegSource.h"
#include "tessel/IYuvSource.h"

namespace tessel::tests {
namespace {

using api::streaming::IJpegSource;
using api::streaming::IYuvSource;
using namespace api::streaming::common;
using Source = quill::host::Handle<IStreamOutput>;

// The number that a frame shows, of that size and no other; none when it does not decode. Without a
// decoder it is a raw picture.
std::optional<std::uint32_t> NumberIn(const frame_t& frame, Decoder* decoder, int width,
                                      int height) {
  if (decoder != nullptr) {
    const bool is_right = decoder->Decode(frame) && decoder->picture->width == width &&
                          decoder->picture->height == height;
    return is_right ? decoder->Number() : std::nullopt;
  }
  std::uint32_t number = 0;
  const bool fits = frame.size == static_cast<unsigned>(width * height * 3 / 2);
  if (!fits || !rtos::ReadFrameNumber(frame.data, width, width, height, number)) return {};
  return number;
}

class VideoSources : public StreamTest {
 protected:
  VideoSources() {
    Use([](auto& options) { options.session_bytes = std::size_t{64} << 20; });
    Replace("shm0_cmd", [](AttrSet& args, const Command& real) {
      args.Add("timeout", std::chrono::nanoseconds(kDeadline).count());  // pictures may be large
      return real(args);
    });
  }
  static Source Make(const std::string& name, int width = 160, int height = 120) {
    Source source = quill::host::Create<IStreamOutput>(name.c_str());
    if (auto* video = dynamic_cast<IVideoSource*>(source.get())) {
      video->SetWidth(width);
      video->SetHeight(height);
    } else if (auto* yuv = dynamic_cast<IYuvSource*>(source.get())) {
      yuv->SetWidth(width);
      yuv->SetHeight(height);
    }
    return source;
  }
  static void Trigger(const Source& source) {
    if (auto* trigger = dynamic_cast<ITrigger*>(source.get())) trigger->Trigger();
  }
  // Plays `source` and takes `count` frames of it, asking for each where that is needed.
  static std::vector<Frame> Take(const Source& source, std::size_t count) {
    std::mutex mutex;
    std::vector<Frame> frames;
    Event done;
    source->RegisterOutputCallback([&](Frame& frame) {
      const std::lock_guard lock(mutex);
      if (frames.size() < count) frames.push_back(frame);
      Trigger(source);
      if (frames.size() == count) done.Set();
      return true;
    });
    EXPECT_TRUE(source->Open() && source->Start());
    Trigger(source);
    if (source->IsSupportedPullFrame()) {
      Frame frame;
      while (frames.size() < count && source->PullFrame(frame, true)) {
        frames.push_back(std::move(frame));
        Trigger(source);
      }
    } else {
      EXPECT_TRUE(done.Wait());
    }
    EXPECT_TRUE(source->Stop());
    return frames;
  }
};

TEST_F(VideoSources, DeliverWhatWasAskedForPushedAndPulled) {
  Use([](auto& options) { options.paced = false; });
  const struct {
    const char* head;
    const char* tail;
    AVCodecID codec;
  } rows[] = {
      {"ApiH264Source-dualos-cbrc-", "", AV_CODEC_ID_H264},
      {"ApiH264SourceTrigger-dualos-trigger-", "", AV_CODEC_ID_H264},
      {"ApiH264Source-vbrc-dualos-", "", AV_CODEC_ID_H264},
      {"ApiH264Source-dualos-vbrc-trigger-", "", AV_CODEC_ID_H264},
      {"ApiJpegSource-dualos-cbrc-", "", AV_CODEC_ID_MJPEG},
      {"ApiJpegSourceTrigger-dualos-trigger-", "", AV_CODEC_ID_MJPEG},
      {"ApiYuvSource-dualos-", "", AV_CODEC_ID_RAWVIDEO},
      {"ApiYuvSource-dualos-", "-fake", AV_CODEC_ID_NONE},
  };
  for (const auto& [head, tail, codec] : rows) {
    for (const std::string delivery : {"push", "pull"}) {
      for (const auto& [width, height] : {std::pair(320, 240), {1920, 1080}}) {
        const std::string name = std::string(head).append(delivery).append(tail);
        const Source source = Make(name, width, height);
        ASSERT_TRUE(source) << name;
        const std::vector<Frame> frames = Take(source, 8);
        ASSERT_EQ(frames.size(), 8U) << name;
        const AttrSet media(source->GetMediaInfo().c_str());
        const char* told_width = media.Get("w");
        EXPECT_EQ(told_width == nullptr ? "" : told_width,
                  codec == AV_CODEC_ID_NONE ? "" : std::to_string(width))
            << name;
        std::unique_ptr<Decoder> decoder;
        const bool is_coded = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_MJPEG;
        if (is_coded) decoder = std::make_unique<Decoder>(codec);
        std::int64_t shown = -1;
        for (std::size_t i = 0; i < frames.size(); ++i) {
          EXPECT_EQ(frames[i]->seq, i) << name;
          EXPECT_TRUE(i == 0 || frames[i]->timestamp > frames[i - 1]->timestamp) << name;
          if (codec == AV_CODEC_ID_NONE) {
            EXPECT_EQ(frames[i]->size, 2764800U);
            continue;
          }
          const auto number = NumberIn(*frames[i], decoder.get(), width, height);
          ASSERT_TRUE(number) << name << ", frame " << i << " of " << frames[i]->size;
          EXPECT_GT(std::int64_t{*number}, shown) << name;
          shown = *number;
        }
      }
    }
  }
}

TEST_F(VideoSources, GiveExactlyOnePictureForEachTrigger) {
  constexpr unsigned kSeed = 11;
  for (const std::string name :
       {"ApiH264SourceTrigger-dualos-trigger-push", "ApiH264Source-dualos-vbrc-trigger-push",
        "ApiJpegSourceTrigger-dualos-trigger-push"}) {
    const Source source = Make(name);
    std::atomic<std::uint32_t> frames{0};
    std::atomic<std::uint32_t> missing{0};
    source->RegisterOutputCallback([&](Frame& frame) {
      missing = frame->seq - frames++;
      return true;
    });
    ASSERT_TRUE(source->Open() && source->Start());
    // As many captures as a second has, and not one frame.
    ASSERT_TRUE(Eventually([] { return Counters().untriggered >= 30; }));
    EXPECT_EQ(frames, 0U) << name;
    auto& control = dynamic_cast<IBitRateControl&>(*source.get());
    control.SetFrameRateMaximum(200);
    std::mt19937 random(kSeed);
    for (int i = 0; i < 100; ++i) {
      // Moments are random against the captures: 0 to 3 of them later, or at once.
      const std::uint64_t until = Counters().untriggered + random() % 4;
      ASSERT_TRUE(Eventually([&] { return i % 3 == 0 || Counters().untriggered >= until; }));
      Trigger(source);
    }
    ASSERT_TRUE(Eventually([&] { return frames == 100; })) << frames << ", seed " << kSeed;
    const std::uint64_t untriggered = Counters().untriggered;
    ASSERT_TRUE(Eventually([&] { return Counters().untriggered > untriggered + 20; }));
    EXPECT_EQ(frames, 100U) << name;
    // What nobody asked for is no loss; a busy machine may make captures late.
    EXPECT_LE(missing, Counters().dropped);
    EXPECT_LT(Counters().dropped, Counters().untriggered);
  }
}

// One that comes while nothing plays waits; one that was served is not served again.
TEST_F(VideoSources, ServeEachTriggerOnceWheneverItComes) {
  const Source source = Make("ApiJpegSourceTrigger-dualos-trigger-pull");
  const auto trigger = [&](int count) {
    for (int i = 0; i < count; ++i) Trigger(source);
  };
  // Plays, and takes as many frames as come before 10 captures were passed over.
  const auto count_frames = [&] {
    EXPECT_TRUE(source->Open() && source->Start());
    const std::uint64_t before = Counters().untriggered;
    EXPECT_TRUE(Eventually([&] { return Counters().untriggered >= before + 10; }));
    Frame frame;
    int frames = 0;
    while (source->PullFrame(frame, false)) ++frames;
    return frames;
  };
  trigger(2);
  EXPECT_EQ(count_frames(), 2) << "before Open()";
  ASSERT_TRUE(source->Stop());
  trigger(1);
  EXPECT_EQ(count_frames(), 1) << "between Stop() and Start()";
  ASSERT_TRUE(source->Stop());
  trigger(1);
  ASSERT_TRUE(source->Close());
  trigger(1);
  EXPECT_EQ(count_frames(), 2) << "before and behind Close()";
  ASSERT_TRUE(source->Close());
  EXPECT_EQ(count_frames(), 0);
  KillFarSide();
  trigger(3);
  ASSERT_TRUE(source->Close());
  trigger(1);
  EXPECT_EQ(count_frames(), 1) << "those before Close() could not be served any more";
}

// A request that comes while the client holds every slot is served when there is one again.
TEST_F(VideoSources, KeepATriggerForWhichThereWasNoSlot) {
  Use([](auto& options) { options.session_slots = 2; });
  const Source source = Make("ApiJpegSourceTrigger-dualos-trigger-pull");
  ASSERT_TRUE(source->Open() && source->Start());
  Frame first;
  Frame second;
  Frame third;
  for (int i = 0; i < 3; ++i) Trigger(source);
  ASSERT_TRUE(source->PullFrame(first, true) && source->PullFrame(second, true));
  ASSERT_TRUE(Eventually([] { return Counters().dropped > 2; }));
  EXPECT_FALSE(source->PullFrame(third, false));
  first.reset();
  ASSERT_TRUE(source->PullFrame(third, true));
  EXPECT_GT(third->seq, second->seq + 2) << "captures were lost for want of a slot";
}

// A sensor that fails while its captures are passed over says so all the same.
TEST_F(VideoSources, TellOfASensorThatFailsWhileNothingIsAskedFor) {
  const std::string file = ::testing::TempDir() + std::to_string(getpid()) + ".mkv";
  const std::string make =
      TESSEL_TOOL " capture h264 -q --unpaced --width 320 --height 240 --frames 30 -o " + file;
  ASSERT_EQ(std::system(make.c_str()), 0);
  Use([&file](auto& options) { options.sensor = file; });
  for (const std::string name :
       {"ApiH264SourceTrigger-dualos-trigger-pull", "ApiH264Source-vbrc-dualos-pull"}) {
    const Source source = Make(name);
    dynamic_cast<IBitRateControl&>(*source.get()).SetFrameRate(1);
    std::string said;
    Event failed;
    source->RegisterMessageCallback([&](const char* text) {
      said = text;
      failed.Set();
      return true;
    });
    ASSERT_TRUE(source->Open() && source->Start());
    const auto size_bytes = std::filesystem::file_size(file);
    std::filesystem::resize_file(file, 0);  // so it cannot be played again
    ASSERT_TRUE(failed.Wait()) << name;
    EXPECT_TRUE(said.starts_with("element \"pv-yuv-src-adv\": sensor \"" + file)) << said;
    std::vector<quill::host::BoardStream> board;
    EXPECT_TRUE(quill::host::ListBoard(board, said) && board.size() == 1) << said;
    EXPECT_EQ(board[0].state, "failed");
    std::filesystem::resize_file(file, size_bytes);
    ASSERT_EQ(std::system(make.c_str()), 0);
  }
  std::filesystem::remove(file);
}

// By their time stamps, over frames of a stream that captures 30 a second.
TEST_F(VideoSources, AreThinnedEvenlyToTheFrameRateOfTheMoment) {
  Use([](auto& options) { options.paced = false; });
  const Source source = Make("ApiH264Source-vbrc-dualos-pull");
  auto& control = dynamic_cast<IBitRateControl&>(*source.get());
  ASSERT_TRUE(source->Open() && source->Start());
  Frame frame;
  const std::pair<int, int> rates[] = {{10, 1}, {25, 1}, {1, 1}, {30, 1}, {7, 1}, {5, 8}, {60, 1}};
  for (const auto& [rate, least] : rates) {
    control.SetFrameRateMinimum(least);
    control.SetFrameRate(rate);
    // What is in the ring was captured before; then one that the old rate may have let through.
    for (int i = 0; i < 26; ++i) ASSERT_TRUE(source->PullFrame(frame, true));
    const std::int64_t begin_ns = frame->timestamp;
    std::int64_t last_ns = begin_ns;
    std::uint32_t seq = frame->seq;
    const int asked = std::min(std::max(rate, least), 30);
    constexpr int kFrames = 20;
    for (int i = 0; i < kFrames; ++i) {
      ASSERT_TRUE(source->PullFrame(frame, true));
      EXPECT_EQ(frame->seq, ++seq) << "what is thinned out is no loss";
      EXPECT_LT(frame->timestamp - last_ns, kSecondNs / asked + kSecondNs / 30) << rate;
      last_ns = frame->timestamp;
    }
    const double seen = kFrames * 1e9 / static_cast<double>(last_ns - begin_ns);
    EXPECT_NEAR(seen, asked, 0.03 * asked);
  }
}

class Synthetic : public StreamTest {
 protected:
  using Fake = quill::host::Handle<IYuvSource>;
  static Fake Make(const std::string& delivery) {
    return quill::host::Create<IYuvSource>(("ApiYuvSource-dualos-" + delivery + "-fake").c_str());
  }
};

TEST_F(Synthetic, PulledFramesAreNeverDelayedAndOwnTheirMemory) {
  const Fake fake = Make("pull");
  LogLines(quill::stream::kTrace);
  EXPECT_TRUE(fake->Open() && fake->Start() && fake->SendMessage("ignored"));
  const std::string begin = "\033[35mplugin/api/linux/YuvSourceFake.cpp/#/Open:\t_yuv.";  // magenta
  EXPECT_EQ(ColouredLines(quill::stream::kTrace),
            (Lines{begin + "width=1920\n\033[0m", begin + "height=1080\n\033[0m",
                   begin + "format=420V50\n\033[0m"}));
  std::vector<Frame> frames(3);
  for (std::uint32_t i = 0; i < 3; ++i) {
    ASSERT_TRUE(fake->PullFrame(frames[i], i == 0));
    EXPECT_EQ(frames[i]->seq, i);
    EXPECT_EQ(frames[i]->timestamp, i * kSecondNs / 30);
    EXPECT_TRUE(frames[i]->size == 2764800 && frames[i]->isKey && frames[i]->release);
  }
  EXPECT_TRUE(frames[0]->data != frames[1]->data && frames[1]->data != frames[2]->data);
  fake->SetFrameRate(1);
  EXPECT_EQ(fake->GetYuvMediaInfo().frameRate, 30) << "kept apart";
  const std::int64_t begin_ns = NowNs();
  Frame quick;
  for (int i = 3; i < 103; ++i) ASSERT_TRUE(fake->PullFrame(quick, true) && quick->seq == i + 0U);
  EXPECT_LT(NowNs() - begin_ns, 5 * kSecondNs) << "at 50 ms a frame";
  fake->SetFrameRate(15);
  ASSERT_TRUE(fake->PullFrame(frames[0], false));
  EXPECT_EQ(frames[0]->timestamp, 103 * kSecondNs / 15);
  fake->SetFrameRate(0);
  ASSERT_TRUE(fake->Close() && fake->PullFrame(frames[0], false)) << "closed or not";
  EXPECT_EQ(frames[0]->timestamp, 0) << "no rate, no schedule";
  fake->RegisterOutputCallback([](Frame&) { return true; });
  EXPECT_TRUE(fake->Stop()) << "without a worker there is nothing to stop";
  EXPECT_EQ(fake->GetMediaInfo(), "");
  EXPECT_EQ(fake->CurrentState(), State::kNull) << "only the state machine moves it";
  EXPECT_TRUE(fake->ChangeState(State::kPlay) && fake->ChangeState(State::kNull));
  Frame none;
  EXPECT_FALSE(Make("push")->PullFrame(none, true));
  EXPECT_EQ(LogLines(), Lines{"plugin/api/linux/YuvSourceFake.cpp/#/PullFrame:\t!_pullmode"});
}

TEST_F(Synthetic, PushedFramesFollowTheScheduleFromTheStart) {
  const Fake fake = Make("push");
  constexpr std::int64_t kRate = 300;  // whose frame time is no whole number of ns
  fake->SetFrameRate(kRate);
  ASSERT_TRUE(fake->Start());
  EXPECT_TRUE(fake->Stop()) << "without a callback the worker goes on";
  std::vector<Frame> frames;
  std::atomic<bool> is_early{false};
  for (int run = 0; run < 2; ++run) {
    frames.clear();
    Event done;
    EXPECT_TRUE(fake->RegisterOutputCallback([&](Frame& frame) {
      if (NowNs() < frame->timestamp) is_early = true;
      if (frames.size() < 20) frames.push_back(frame);
      if (frames.size() == 20) done.Set();
      return false;  // of no consequence
    }));
    ASSERT_TRUE(run == 0 || fake->Start());
    ASSERT_TRUE(done.Wait());
    ASSERT_TRUE(fake->Stop());
    for (std::size_t i = 0; i < 20; ++i) {
      EXPECT_EQ(frames[i]->seq, frames[0]->seq + i);
      const auto due_ns = [&](const Frame& frame) { return frame->seq * kSecondNs / kRate; };
      EXPECT_EQ(frames[i]->timestamp - frames[0]->timestamp, due_ns(frames[i]) - due_ns(frames[0]));
      EXPECT_EQ(frames[i]->data, frames[0]->data) << "one buffer a run";
      EXPECT_FALSE(frames[i]->release);
    }
    EXPECT_TRUE(run == 0 || frames[0]->seq == 0);
  }
  EXPECT_FALSE(is_early);
}

TEST_F(Synthetic, MayBeStoppedByItsCallbackAndStartedAgain) {
  Fake fake = Make("push");
  fake->SetFrameRate(1000);
  Event events[3];
  for (Event& stopped : events) {
    fake->RegisterOutputCallback([&](Frame&) {
      EXPECT_TRUE(fake->Stop());
      stopped.Set();
      return true;
    });
    ASSERT_TRUE(fake->Start());
    ASSERT_TRUE(stopped.Wait());
  }
  fake->RegisterOutputCallback(nullptr);
  EXPECT_TRUE(fake->Stop()) << "has no effect now";
  fake.reset();  // its worker has ended
}

// A rate of 0 is none; pausing is the stream's, which this source does not look at.
TEST_F(Synthetic, PushesNothingWithoutARateAndGoesOnWithOne) {
  const Fake fake = Make("push");
  std::atomic<int> frames{0};
  fake->RegisterOutputCallback([&](Frame&) { return ++frames > 0; });
  fake->SetFrameRate(0);
  ASSERT_TRUE(fake->ChangeUp(State::kPause));
  EXPECT_TRUE(Eventually([&] { return frames == 1; })) << "is due at once";
  static_cast<void>(Event().WaitFor(std::chrono::milliseconds(30)));
  EXPECT_EQ(frames, 1);
  fake->SetFrameRate(1000);
  EXPECT_TRUE(Eventually([&] { return frames > 3; }));
  fake->SetFrameRate(0);
  EXPECT_TRUE(fake->ChangeDown(State::kNull)) << "stops the worker";
}

TEST_F(Synthetic, KeepsOnlyTheCallbacksThatMayBeInUse) {
  const Fake fake = Make("push");
  fake->SetFrameRate(1'000'000);
  const auto token = std::make_shared<std::atomic<int>>(0);
  ASSERT_TRUE(fake->Start());
  for (int i = 0; i < 20'000; ++i) {
    fake->RegisterOutputCallback([token](Frame&) { return ++*token > 0; });
    ASSERT_LE(token.use_count(), 3) << "here, the newest, and the one in use";
  }
  EXPECT_TRUE(Eventually([&] { return *token > 0; }) && fake->Stop());
  fake->RegisterOutputCallback(nullptr);
  EXPECT_EQ(token.use_count(), 1);
}

using SyntheticDeathTest = Synthetic;

TEST_F(SyntheticDeathTest, AWorkerThatStillRunsCannotBeReplaced) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto twice = [] {
    const Fake fake = Make("push");
    fake->Start();
    fake->Start();
  };
  const auto dropped = [] { static_cast<void>(Make("push")->Start()); };
  // What its callback calls; `stops`: another thread waits for the worker meanwhile.
  const auto inside = [](bool stops, const std::function<void(IYuvSource&)>& call) {
    alarm(static_cast<unsigned>(kDeadline.count()));  // a hang is another end
    const Fake fake = Make("push");
    Event entered;
    Event stopping;
    fake->RegisterOutputCallback([&](Frame&) {
      entered.Set();
      EXPECT_TRUE(stopping.Wait());
      if (stops) static_cast<void>(Event().WaitFor(std::chrono::milliseconds(50)));
      call(*fake);
      return true;
    });
    fake->Start();
    EXPECT_TRUE(entered.Wait());
    stopping.Set();
    if (stops) fake->Stop();
    static_cast<void>(Event().WaitFor(std::chrono::milliseconds(500)));
    fake->Stop();
  };
  constexpr char kEnd[] = "terminate called without an active exception";
  const auto start = [](IYuvSource& fake) { fake.Start(); };
  const auto restart = [](IYuvSource& fake) { fake.Stop() && fake.Start(); };
  EXPECT_DEATH(twice(), kEnd);
  EXPECT_DEATH(dropped(), kEnd);
  EXPECT_DEATH(inside(false, start), kEnd);
  EXPECT_DEATH(inside(false, restart), kEnd);
  EXPECT_DEATH(inside(true, start), kEnd);
}

}  // namespace
}  // namespace tessel::tests
