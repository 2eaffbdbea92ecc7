// Frames on their way to the client, pushed and pulled, and what becomes of their memory.
#include <numeric>
#include <thread>

#include "common/StreamAppOutput.h"
#include "Fixture.h"
#include "OddFarSide.h"

namespace tessel::tests {
namespace {

std::string Bytes(const Frame& frame) {
  return {reinterpret_cast<const char*>(frame->data), frame->size};
}

class FrameDelivery : public StreamTest {
 protected:
  // Starts threads that pull, lets `end` end the stream once all of them are at it, and checks that
  // their waits end with it.
  static void ExpectEndedPulls(int pullers, const std::function<void(const Camera&)>& end) {
    using Clock = std::chrono::steady_clock;
    const Camera camera = OpenPull();
    // With every slot held no frame comes any more: whoever pulls now waits.
    std::vector<Frame> kept;
    while (static_cast<int>(kept.size()) < quill::host::GetOptions().session_slots) {
      kept.push_back(NextFrame(camera));
    }
    std::atomic<int> busy{0};
    std::vector<std::future<Clock::time_point>> pulls;
    pulls.reserve(static_cast<std::size_t>(pullers));
    for (int i = 0; i < pullers; ++i) {
      pulls.push_back(std::async(std::launch::async, [&] {
        Frame frame;
        ++busy;
        EXPECT_FALSE(camera->PullFrame(frame, true));
        return Clock::now();
      }));
    }
    ASSERT_TRUE(Eventually([&] { return busy == pullers; }));
    const auto begin = Clock::now();
    end(camera);
    for (auto& pull : pulls) EXPECT_LT(pull.get() - begin, std::chrono::milliseconds(100));
  }
};

TEST_F(FrameDelivery, APulledFrameTakesOverTheHoldThatCameWithIt) {
  const Camera camera = OpenPull();
  Frame frame;
  ASSERT_TRUE(camera->PullFrame(frame, true));
  EXPECT_TRUE(frame->isKey);
  EXPECT_EQ(Counters().held, 1U);
  const Frame again = frame;
  EXPECT_EQ(Counters().held, 1U);
  ASSERT_TRUE(camera->PullFrame(frame, true));
  EXPECT_EQ(Counters().held, 2U);
  ASSERT_TRUE(camera->PullFrame(frame, true));
  EXPECT_EQ(Counters().held, 2U) << "what the frame held before is released";
  frame.reset();
  EXPECT_EQ(Counters().held, 1U);
}

TEST_F(FrameDelivery, APushedFrameIsHeldForTheCallbackAndBeyondIfKept) {
  std::vector<Frame> kept;
  Event done;
  std::vector<std::uint64_t> held;
  const Camera camera = OpenPush([&](Frame& frame) {
    if (held.size() == 3) return true;
    held.push_back(Counters().held);
    if (held.size() == 2) kept.push_back(frame);
    if (held.size() == 3) done.Set();
    return true;
  });
  ASSERT_TRUE(done.Wait());
  EXPECT_TRUE(camera->Stop());
  EXPECT_EQ(held, (std::vector<std::uint64_t>{1, 1, 2}));
  EXPECT_EQ(Counters().held, 1U);
  kept.clear();
  EXPECT_EQ(Counters().held, 0U);
}

TEST_F(FrameDelivery, PushAndPullExcludeEachOther) {
  const auto ignore = [](Frame&) { return true; };
  EXPECT_FALSE(Make(kPull)->RegisterOutputCallback(ignore));
  const Camera camera = OpenPush(ignore);
  Frame frame = std::make_shared<frame_t>();
  frame->seq = 77;
  const auto* before = frame.get();
  EXPECT_FALSE(camera->PullFrame(frame, true));
  EXPECT_FALSE(camera->PullFrame(frame, false));
  EXPECT_TRUE(frame.get() == before && frame->seq == 77);
}

TEST_F(FrameDelivery, WithoutACallbackFramesAreDroppedOnTheWay) {
  const Camera camera = Make(kPush);
  ASSERT_TRUE(camera->Open() && camera->Start());
  EXPECT_TRUE(Eventually([] { return Counters().delivered >= 3; }));
  EXPECT_TRUE(camera->Stop());
  EXPECT_EQ(Counters().held, 0U);
}

TEST_F(FrameDelivery, ARefusingCallbackIsLoggedAndGetsTheNext) {
  std::atomic<int> calls{0};
  Event done;
  const Camera camera = OpenPush([&](Frame&) {
    if (++calls == 2) done.Set();
    return calls != 1;
  });
  ASSERT_TRUE(done.Wait());
  EXPECT_TRUE(camera->Stop());
  const std::string object = "N6tessel6dualos10H264SourceE";
  EXPECT_EQ(LogLines(), Lines{"plugin/api/linux/common/StreamAppOutput.cpp/#/CbOutput:\t"
                              "!_funcOutput(frm)," +
                              object});
}

TEST_F(FrameDelivery, KeptFramesStayReadableBeyondTheNextAndBeyondClose) {
  Camera camera = OpenPull();
  std::vector<std::pair<Frame, std::string>> kept;
  for (int i = 0; i < 5; ++i) {
    Frame frame = NextFrame(camera);
    ASSERT_NE(frame, nullptr);
    ASSERT_GT(frame->size, 4U);
    kept.emplace_back(frame, Bytes(frame));
    EXPECT_EQ(kept.back().second.substr(0, 4), std::string("\0\0\0\1", 4));
  }
  NextFrame(camera);
  EXPECT_TRUE(camera->Close());
  camera.reset();
  for (const auto& [frame, bytes] : kept) EXPECT_EQ(Bytes(frame), bytes);
  KillFarSide();
  for (const auto& [frame, bytes] : kept) EXPECT_EQ(Bytes(frame), bytes);
  EXPECT_EQ(Counters().held, 5U);
  kept.clear();
  EXPECT_TRUE(quill::host::Streams().empty()) << "the last frame ends the session";
}

TEST_F(FrameDelivery, AFullSessionDropsNewFramesAndGoesOnWhenRoomIsThere) {
  const Camera camera = OpenPull();
  std::vector<Frame> kept;
  for (int i = 0; i < quill::host::GetOptions().session_slots; ++i)
    kept.push_back(NextFrame(camera));
  ASSERT_TRUE(Eventually([] { return Counters().dropped > 0; }));
  Frame none;
  EXPECT_FALSE(camera->PullFrame(none, false));
  const std::uint32_t last = kept.back()->seq;
  kept.erase(kept.begin());
  const Frame next = NextFrame(camera);
  ASSERT_NE(next, nullptr);
  EXPECT_GT(next->seq, last + 1) << "the gap tells of the dropped ones";
}

TEST_F(FrameDelivery, PullReturnsFalseWhenStoppedOrClosedWhileWaiting) {
  for (const int pullers : {1, 4}) {
    ExpectEndedPulls(pullers, [](const Camera& camera) { EXPECT_TRUE(camera->Stop()); });
    ExpectEndedPulls(pullers, [](const Camera& camera) { EXPECT_TRUE(camera->Close()); });
    ExpectEndedPulls(pullers, [](const Camera&) { KillFarSide(); });
  }
}

TEST_F(FrameDelivery, PullReturnsFalseWhileNothingPlays) {
  const Camera camera = Make();
  Frame frame;
  EXPECT_FALSE(camera->PullFrame(frame, true)) << "never opened";
  ASSERT_TRUE(camera->ChangeState(State::kPlay));
  ASSERT_TRUE(camera->PullFrame(frame, true));
  EXPECT_TRUE(camera->Stop());
  EXPECT_FALSE(camera->PullFrame(frame, true));
  EXPECT_TRUE(camera->Close());
  EXPECT_FALSE(camera->PullFrame(frame, true));
  EXPECT_NE(frame, nullptr) << "untouched";
}

TEST_F(FrameDelivery, StopAndCloseMayBeCalledInsideTheCallback) {
  for (const bool close : {false, true}) {
    std::atomic<int> calls{0};
    Event started;
    Event done;
    Event again;
    const Camera camera = Make(kPush);
    camera->RegisterOutputCallback([&](Frame&) {
      if (++calls > 1) return again.Set(), true;
      EXPECT_TRUE(started.Wait());
      EXPECT_TRUE(close ? camera->Close() : camera->Stop());
      EXPECT_EQ(camera->CurrentState(), close ? State::kNull : State::kReady);
      done.Set();
      return true;
    });
    ASSERT_TRUE(camera->Open() && camera->Start());
    started.Set();
    ASSERT_TRUE(done.Wait());
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(camera->ChangeState(State::kPlay)) << "it can be started again";
    EXPECT_TRUE(again.Wait());
    EXPECT_TRUE(camera->Stop());
  }
}

// As a client does that wants one frame: the first one may come before Start() has returned.
TEST_F(FrameDelivery, TheFirstFrameMayStopTheStream) {
  UseOddFarSide("floods");
  for (int round = 0; round < 50; ++round) {
    Event stopped;
    Camera camera = Make(kPush);
    camera->RegisterOutputCallback([&](Frame&) {
      EXPECT_TRUE(camera->Stop());
      stopped.Set();
      return true;
    });
    ASSERT_TRUE(camera->Open());
    EXPECT_TRUE(camera->Start());
    ASSERT_TRUE(stopped.Wait());
    ASSERT_EQ(camera->CurrentState(), State::kReady) << "round " << round;
  }
}

TEST_F(FrameDelivery, APushedStreamDeliversAfterEachStart) {
  UseOddFarSide("floods");
  Event first[30];
  std::atomic<int> round{0};
  const Camera camera = Make(kPush);
  camera->RegisterOutputCallback([&](Frame&) { return first[round].Set(), true; });
  ASSERT_TRUE(camera->Open());
  for (Event& came : first) {
    ASSERT_TRUE(camera->Start());
    ASSERT_TRUE(came.Wait()) << "round " << round;
    ASSERT_TRUE(camera->Stop());
    if (round < 29) ++round;
  }
}

TEST_F(FrameDelivery, NoCallbackRunsOnceStopHasReturned) {
  UseOddFarSide("floods");
  for (int round = 0; round < 20; ++round) {
    std::atomic<bool> is_stopped{false};
    std::atomic<int> late{0};
    Event first;
    const Camera camera = OpenPush([&](Frame&) {
      first.Set();
      late += is_stopped ? 1 : 0;
      return true;
    });
    ASSERT_TRUE(first.Wait());
    EXPECT_TRUE(camera->Stop());
    is_stopped = true;
    EXPECT_TRUE(camera->Close());
    EXPECT_EQ(late, 0);
  }
}

TEST_F(FrameDelivery, EachStartBeginsWithAKeyFrame) {
  const Camera camera = OpenPull();
  for (int round = 0; round < 3; ++round) {
    Frame frame = NextFrame(camera);
    ASSERT_NE(frame, nullptr);
    EXPECT_TRUE(frame->isKey) << "round " << round;
    frame = NextFrame(camera);
    ASSERT_NE(frame, nullptr);
    EXPECT_FALSE(frame->isKey);
    EXPECT_TRUE(Eventually([&] { return Counters().made > Counters().delivered; }));
    EXPECT_TRUE(camera->Stop() && camera->Start());  // what was left over is not delivered
  }
}

TEST_F(FrameDelivery, AMediaDescriptionThatLacksAKeyFailsTheOpening) {
  const struct {
    const char* key;
    const char* text;
  } rows[] = {
      {"w", "!media->Get(\"w\",_h264.width)"},
      {"h", "!media->Get(\"h\",_h264.height)"},
      {"header", "!media->Get(\"sps\",_h264.sps)"},
      {"pack", "!media->Get(\"pack\",_h264.pack)"},
      {"codec", "!media->Get(\"jump\",_h264.cbJumpToData)"},
  };
  const char* missing = nullptr;
  EditMedia([&](AttrSet& media) {
    media.Add("w", 208);
    media.Add("h", 112);
    media.Remove(missing);
  });
  for (const auto& row : rows) {
    missing = row.key;
    const Camera camera = Make();
    EXPECT_FALSE(camera->Open());
    const Lines lines = LogLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], std::string("plugin/api/linux/H264Source.cpp/#/CbOpen:\t") + row.text);
    EXPECT_EQ(lines.back(), "plugin/api/linux/common/StreamApp.cpp/#/Open:\t!AppCreate()");
    const auto info = camera->GetH264MediaInfo();
    EXPECT_EQ(info.width, missing[0] == 'w' ? 160 : 208);
    EXPECT_EQ(info.height, std::string("wh").find(missing) != std::string::npos ? 120 : 112);
    const bool knows_sets = missing[0] == 'p' || missing[0] == 'c';
    EXPECT_EQ(info.sps != nullptr && info.pps != nullptr, knows_sets) << missing;
    EXPECT_EQ(info.headerSize, 0) << "offsets and lengths keep their old values";
  }
}

TEST_F(FrameDelivery, TheMediaIsReportedAsDescribed) {
  const Camera camera = Make();
  auto info = camera->GetH264MediaInfo();
  EXPECT_EQ(std::tie(info.gop, info.goptype, info.spsOffset, info.startCodeSize, info.headerSize),
            std::make_tuple(15, "IPPP", 4, 4, 0));
  EditMedia([](AttrSet& media) {
    media.Add("header", "00000001" + std::string(44, '7') + "00000001" + "68ee3c80");
    media.Add("spsoffset", 4);
    media.Add("isps", 22);
    media.Add("ppsoffset", 30);
    media.Add("ipps", 4);
  });
  ASSERT_TRUE(camera->Open());
  info = camera->GetH264MediaInfo();
  EXPECT_EQ(info.headerSize, 38);
  EXPECT_EQ(std::tie(info.spsOffset, info.spsSize, info.spsLength), std::make_tuple(4, 22, 22));
  EXPECT_EQ(std::tie(info.ppsOffset, info.ppsSize, info.ppsLength), std::make_tuple(30, 4, 4));
  EXPECT_EQ(std::string(static_cast<char*>(info.sps), 22), std::string(22, 0x77));
  EXPECT_EQ(std::string(static_cast<char*>(info.pps), 4), "\x68\xee\x3c\x80");
  EXPECT_STREQ(info.pack, "byte-stream");
  EXPECT_EQ(std::accumulate(std::begin(info.reserved), std::end(info.reserved), 0), 0);
  EXPECT_EQ(camera->GetMediaInfo(), "");
}

TEST_F(FrameDelivery, TheJumpsFindTheFirstSlice) {
  const Camera camera = Make();
  ASSERT_TRUE(camera->Open());
  const auto info = camera->GetH264MediaInfo();
  const auto at = [](auto jump, const std::string& text) {
    std::uint32_t left = 0;
    const std::vector<std::uint8_t> frame(text.begin(), text.end());  // its end is watched
    const auto* found = jump(frame.data(), static_cast<std::uint32_t>(frame.size()), &left);
    if (found == nullptr) return -1;
    EXPECT_EQ(static_cast<std::size_t>(found - frame.data()) + left, frame.size());
    return static_cast<int>(found - frame.data());
  };
  using std::string_literals::operator""s;
  const struct {
    std::string frame;
    int byte_stream;
    int avc;
    int either;
  } rows[] = {
      {"", -1, -1, -1},
      {"\0\0\0\1\x67z\0\0\0\1\x68y\0\0\0\1\x65x"s, 12, -1, 12},
      {"\0\0\1\x06q\0\0\1\x41x"s, 5, -1, 5},
      {"\0\0\0\1\x67"s, -1, -1, -1},
      {"\0\0\0\1"s, -1, -1, -1},
      {"\0\0\0\2\x67z\0\0\0\3\x65xx"s, -1, 6, 6},
      {"\0\0\0\2\x67z\0\0\0\4\x65xx"s, -1, -1, -1},
      {"\0\0\0\2\x67z\xff\xff\xff\xff\x65"s, -1, -1, -1},
      {"\0\0\0\0\x65x"s, -1, -1, -1},
  };
  for (const auto& row : rows) {
    const auto index = &row - rows;
    EXPECT_EQ(at(info.cbJumpToDataBs, row.frame), row.byte_stream) << index;
    EXPECT_EQ(at(info.cbJumpToDataAvc, row.frame), row.avc) << index;
    EXPECT_EQ(at(info.cbJumpToData, row.frame), row.either) << index;
  }
}

}  // namespace
}  // namespace tessel::tests
