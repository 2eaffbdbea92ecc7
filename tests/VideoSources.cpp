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
using Size = std::pair<int, int>;
using Source = quill::host::Handle<IStreamOutput>;

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
    SetSize(*source, width, height);
    return source;
  }
  static void Trigger(const Source& source, int count = 1) {
    auto* trigger = dynamic_cast<ITrigger*>(source.get());
    for (int i = 0; i < count && trigger != nullptr; ++i) trigger->Trigger();
  }
  // Waits until `count` more captures were passed over.
  static bool AwaitUntriggered(std::uint64_t count) {
    const std::uint64_t until = Counters().untriggered + count;
    return Eventually([until] { return Counters().untriggered >= until; });
  }
  // Plays `source` and takes `count` frames of it, asking for each where that is needed.
  static std::vector<Frame> Take(const Source& source, std::size_t count) {
    std::vector<Frame> frames;
    Event done;
    const auto take = [&](const Frame& frame) {
      if (frames.size() < count) frames.push_back(frame);
      if (frames.size() == count) done.Set();
      Trigger(source);
      return true;
    };
    source->RegisterOutputCallback(take);
    EXPECT_TRUE(source->Open() && source->Start());
    Trigger(source);
    Frame frame;
    while (source->IsSupportedPullFrame() && frames.size() < count) {
      if (!source->PullFrame(frame, true)) break;
      take(frame);
    }
    EXPECT_TRUE(done.Wait() && source->Stop());
    return frames;
  }
  // Checks `frames` of a source of that codec; raw ones by their size.
  static void ExpectPictures(const std::vector<Frame>& frames, AVCodecID codec, Size size) {
    const auto raw_bytes = static_cast<unsigned>(size.first * size.second * 3 / 2);
    std::unique_ptr<Decoder> decoder;
    if (codec != AV_CODEC_ID_RAWVIDEO) decoder = std::make_unique<Decoder>(codec);
    std::optional<std::uint32_t> shown;
    for (std::uint32_t i = 0; i < frames.size(); ++i) {
      EXPECT_EQ(frames[i]->seq, i);
      EXPECT_TRUE(i == 0 || frames[i]->timestamp > frames[i - 1]->timestamp);
      if (decoder == nullptr) {
        EXPECT_EQ(frames[i]->size, raw_bytes);
        continue;
      }
      ASSERT_TRUE(decoder->Decode(*frames[i])) << "frame " << i << " of " << frames[i]->size;
      EXPECT_EQ(Size(decoder->picture->width, decoder->picture->height), size);
      EXPECT_GT(decoder->Number(), shown);
      shown = decoder->Number();
    }
  }
};

TEST_F(VideoSources, DeliverPicturesOfTheirSizePushedAndPulled) {
  Use([](auto& options) { options.paced = false; });
  const std::pair<std::string, AVCodecID> rows[] = {
      {"ApiH264Source-dualos-cbrc-", AV_CODEC_ID_H264},
      {"ApiH264SourceTrigger-dualos-trigger-", AV_CODEC_ID_H264},
      {"ApiH264Source-vbrc-dualos-", AV_CODEC_ID_H264},
      {"ApiH264Source-dualos-vbrc-trigger-", AV_CODEC_ID_H264},
      {"ApiJpegSource-dualos-cbrc-", AV_CODEC_ID_MJPEG},
      {"ApiJpegSourceTrigger-dualos-trigger-", AV_CODEC_ID_MJPEG},
      {"ApiYuvSource-dualos-", AV_CODEC_ID_RAWVIDEO},
  };
  for (const auto& [head, codec] : rows) {
    for (const auto& [delivery, size] :
         {std::pair(std::string("push"), Size(1920, 1080)), {"pull", {320, 240}}}) {
      SCOPED_TRACE(head + delivery);
      const Source source = Make(head + delivery, size.first, size.second);
      const std::vector<Frame> frames = Take(source, 8);
      ASSERT_EQ(frames.size(), 8U);
      ExpectPictures(frames, codec, size);
      const AttrSet media(source->GetMediaInfo().c_str());
      int width = 0;
      EXPECT_TRUE(media.Get("w", width) && width == size.first);
    }
  }
}

TEST_F(VideoSources, GiveExactlyOnePictureForEachTrigger) {
  std::mt19937 random(11);
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
    ASSERT_TRUE(source->Open() && source->Start() && AwaitUntriggered(30));
    EXPECT_EQ(frames, 0U) << name;
    dynamic_cast<IBitRateControl&>(*source.get()).SetFrameRateMaximum(200);
    for (int i = 0; i < 100; ++i) {  // at random moments
      ASSERT_TRUE(i % 3 == 0 || AwaitUntriggered(random() % 4));
      Trigger(source);
    }
    ASSERT_TRUE(Eventually([&] { return frames == 100; })) << name << frames;
    ASSERT_TRUE(AwaitUntriggered(20));
    EXPECT_EQ(frames, 100U) << name;
    // What nobody asked for is no loss; a busy machine may make captures late.
    EXPECT_LE(missing, Counters().dropped);
    EXPECT_LT(Counters().dropped, Counters().untriggered);
  }
}

TEST_F(VideoSources, ServeEachTriggerOnceWheneverItComes) {
  const Source source = Make("ApiJpegSourceTrigger-dualos-trigger-pull");
  // Plays, and takes as many frames as come before 10 captures were passed over.
  const auto count_frames = [&] {
    EXPECT_TRUE(source->Open() && source->Start() && AwaitUntriggered(10));
    Frame frame;
    int frames = 0;
    while (source->PullFrame(frame, false)) ++frames;
    return frames;
  };
  Trigger(source, 2);
  EXPECT_EQ(count_frames(), 2) << "before Open()";
  ASSERT_TRUE(source->Stop());
  Trigger(source);
  EXPECT_EQ(count_frames(), 1) << "between Stop() and Start()";
  ASSERT_TRUE(source->Stop());
  Trigger(source);
  ASSERT_TRUE(source->Close());
  Trigger(source);
  EXPECT_EQ(count_frames(), 2) << "before and behind Close()";
  ASSERT_TRUE(source->Close());
  EXPECT_EQ(count_frames(), 0);
  KillRtos();
  Trigger(source, 3);
  ASSERT_TRUE(source->Close());
  Trigger(source);
  EXPECT_EQ(count_frames(), 1) << "those before Close() could not be served any more";
}

TEST_F(VideoSources, KeepATriggerUntilASlotIsReleased) {
  Use([](auto& options) { options.session_slots = 2; });
  const Source source = Make("ApiJpegSourceTrigger-dualos-trigger-pull");
  ASSERT_TRUE(source->Open() && source->Start());
  Frame first;
  Frame second;
  Frame third;
  Trigger(source, 3);
  ASSERT_TRUE(source->PullFrame(first, true) && source->PullFrame(second, true));
  ASSERT_TRUE(Eventually([] { return Counters().dropped > 2; }));
  EXPECT_FALSE(source->PullFrame(third, false));
  first.reset();
  ASSERT_TRUE(source->PullFrame(third, true));
  EXPECT_GT(third->seq, second->seq + 2) << "the gap tells of the captures without a slot";
}

TEST_F(VideoSources, TellOfASensorThatFailsBetweenTriggers) {
  const std::string file = ::testing::TempDir() + std::to_string(getpid()) + ".mkv";
  const std::string make = TESSEL_TOOL " capture h264 -q --unpaced --frames 30 -o " + file;
  ASSERT_EQ(std::system(make.c_str()), 0);
  Use([&file](auto& options) { options.sensor = file; });
  const Source source = Make("ApiH264SourceTrigger-dualos-trigger-pull");
  Listen(*source);
  ASSERT_TRUE(source->Open() && source->Start());
  std::filesystem::resize_file(file, 0);  // so it cannot be played again
  const std::string told = Told().front();
  EXPECT_TRUE(told.starts_with("element \"pv-yuv-src-adv\": sensor \"" + file)) << told;
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
    const Frame begin = frame;
    std::int64_t last_ns = begin->timestamp;
    const int asked = std::min(std::max(rate, least), 30);
    constexpr unsigned kFrames = 20;
    for (unsigned i = 1; i <= kFrames; ++i) {
      ASSERT_TRUE(source->PullFrame(frame, true));
      EXPECT_EQ(frame->seq, begin->seq + i) << "what is thinned out is no loss";
      EXPECT_LT(frame->timestamp - last_ns, kSecondNs / asked + kSecondNs / 30) << rate;
      last_ns = frame->timestamp;
    }
    EXPECT_NEAR(kFrames * 1e9 / static_cast<double>(last_ns - begin->timestamp), asked,
                0.03 * asked);
  }
}

class Synthetic : public StreamTest {
 protected:
  using Fake = quill::host::Handle<IYuvSource>;
  static Fake Make(const std::string& delivery) {
    return quill::host::Create<IYuvSource>(("ApiYuvSource-dualos-" + delivery + "-fake").c_str());
  }
};

TEST_F(Synthetic, TellsItsSettingsInMagentaAndKeepsItsState) {
  const Fake fake = Make("pull");
  LogLines(quill::stream::kTrace);
  EXPECT_TRUE(fake->Open() && fake->Start() && fake->SendMessage("ignored"));
  const std::string begin = "\033[35mplugin/api/linux/YuvSourceFake.cpp/#/Open:\t_yuv.";
  EXPECT_EQ(ColouredLines(quill::stream::kTrace),
            (Lines{begin + "width=1920\n\033[0m", begin + "height=1080\n\033[0m",
                   begin + "format=420V50\n\033[0m"}));
  EXPECT_EQ(fake->GetMediaInfo(), "");
  EXPECT_EQ(fake->CurrentState(), State::kNull) << "only the state machine moves it";
  EXPECT_TRUE(fake->ChangeState(State::kPlay) && fake->ChangeState(State::kNull));
  fake->RegisterOutputCallback([](Frame&) { return true; });
  EXPECT_TRUE(fake->Stop()) << "without a worker there is nothing to stop";
  Frame none;
  EXPECT_FALSE(Make("push")->PullFrame(none, true));
  EXPECT_EQ(LogLines(), Lines{"plugin/api/linux/YuvSourceFake.cpp/#/PullFrame:\t!_pullmode"});
}

TEST_F(Synthetic, PulledFramesAreNeverDelayedAndOwnTheirMemory) {
  const Fake fake = Make("pull");
  std::vector<Frame> frames(3);
  for (std::uint32_t i = 0; i < 3; ++i) {
    ASSERT_TRUE(fake->PullFrame(frames[i], i == 0)) << "open or not";
    EXPECT_EQ(frames[i]->seq, i);
    EXPECT_EQ(frames[i]->timestamp, i * kSecondNs / 30);
    EXPECT_TRUE(frames[i]->size == 2764800 && frames[i]->isKey && frames[i]->release);
  }
  EXPECT_TRUE(frames[0]->data != frames[1]->data && frames[1]->data != frames[2]->data);
  fake->SetFrameRate(1);
  EXPECT_EQ(fake->GetYuvMediaInfo().frameRate, 30) << "kept apart";
  const std::int64_t begin_ns = NowNs();
  Frame frame;
  for (int i = 3; i < 103; ++i) ASSERT_TRUE(fake->PullFrame(frame, true) && frame->seq == i + 0U);
  EXPECT_LT(NowNs() - begin_ns, 5 * kSecondNs) << "at 50 ms a frame";
  fake->SetFrameRate(15);
  ASSERT_TRUE(fake->PullFrame(frame, false));
  EXPECT_EQ(frame->timestamp, 103 * kSecondNs / 15);
  fake->SetFrameRate(0);
  ASSERT_TRUE(fake->PullFrame(frame, false));
  EXPECT_EQ(frame->timestamp, 0) << "no rate, no schedule";
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
    ASSERT_TRUE((run == 0 || fake->Start()) && done.Wait() && fake->Stop());
    const frame_t& first = *frames[0];
    EXPECT_TRUE(run == 0 || first.seq == 0);
    for (std::uint32_t i = 0; i < 20; ++i) {
      EXPECT_EQ(frames[i]->seq, first.seq + i);
      const auto due_ns = [&](std::int64_t seq) { return seq * kSecondNs / kRate; };
      EXPECT_EQ(frames[i]->timestamp - first.timestamp, due_ns(first.seq + i) - due_ns(first.seq));
      EXPECT_TRUE(frames[i]->data == first.data && !frames[i]->release) << "one buffer a run";
    }
  }
  EXPECT_FALSE(is_early);
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
  // The callback starts the worker while the client waits for its end.
  const auto inside = [] {
    alarm(static_cast<unsigned>(kDeadline.count()));  // a hang is another end
    const Fake fake = Make("push");
    Event entered;
    fake->RegisterOutputCallback([&](Frame&) {
      entered.Set();
      static_cast<void>(Event().WaitFor(std::chrono::milliseconds(50)));
      return fake->Start();
    });
    fake->Start();
    EXPECT_TRUE(entered.Wait());
    fake->Stop();
  };
  constexpr char kEnd[] = "terminate called without an active exception";
  EXPECT_DEATH(twice(), kEnd);
  EXPECT_DEATH(dropped(), kEnd);
  EXPECT_DEATH(inside(), kEnd);
}

}  // namespace
}  // namespace tessel::tests
