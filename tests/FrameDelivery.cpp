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
    const Camera camera = OpenPull();
    const std::vector<Frame> kept = HoldAllSlots(camera);  // whoever pulls now waits
    std::atomic<int> busy{0};
    std::vector<std::future<void>> pulls;
    pulls.reserve(static_cast<std::size_t>(pullers));
    for (int i = 0; i < pullers; ++i) {
      pulls.push_back(std::async(std::launch::async, [&] {
        Frame frame;
        ++busy;
        EXPECT_FALSE(camera->PullFrame(frame, true));
      }));
    }
    ASSERT_TRUE(Eventually([&] { return busy == pullers; }));
    end(camera);
    for (auto& pull : pulls) EXPECT_EQ(pull.wait_for(kDeadline), std::future_status::ready);
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
  std::vector<Frame> kept = HoldAllSlots(camera);
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

// As a client does that wants one frame: the first one may come before Start() has returned.
TEST_F(FrameDelivery, TheFirstFrameMayStopOrCloseTheStream) {
  UseOddFarSide("floods");
  for (int round = 0; round < 50; ++round) {
    const bool close = round % 2 == 1;
    std::atomic<int> calls{0};
    Event done;
    Event again;
    const Camera camera = Make(kPush);
    camera->RegisterOutputCallback([&](Frame&) {
      if (++calls > 1) return again.Set(), true;
      EXPECT_TRUE(close ? camera->Close() : camera->Stop());
      EXPECT_EQ(camera->CurrentState(), close ? State::kNull : State::kReady) << "round " << round;
      done.Set();
      return true;
    });
    ASSERT_TRUE(camera->Open() && camera->Start());
    ASSERT_TRUE(done.Wait());
    ASSERT_EQ(camera->CurrentState(), close ? State::kNull : State::kReady) << "round " << round;
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(camera->ChangeState(State::kPlay)) << "it can be started again";
    EXPECT_TRUE(again.Wait());
    EXPECT_TRUE(camera->Stop());
  }
}

TEST_F(FrameDelivery, CallbacksBeginWithEachStartAndEndWithEachStop) {
  UseOddFarSide("floods");
  constexpr int kRounds = 40;
  Event first[kRounds];
  std::atomic<int> round{0};
  std::atomic<bool> is_stopped{false};
  std::atomic<int> late{0};
  const Camera camera = Make(kPush);
  camera->RegisterOutputCallback([&](Frame&) {
    first[round].Set();
    for (int i = 0; i < 50; ++i) std::this_thread::yield();  // a Stop() that does not wait is done
    late += is_stopped ? 1 : 0;
    return true;
  });
  for (int i = 0; i < kRounds; ++i) {
    round = i;
    is_stopped = false;
    ASSERT_TRUE(camera->ChangeState(State::kPlay));
    ASSERT_TRUE(first[i].Wait()) << "round " << i;
    EXPECT_TRUE(camera->Stop());
    is_stopped = true;
    EXPECT_TRUE(i % 2 == 0 || camera->Close());
    EXPECT_EQ(late, 0) << "round " << i;
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
  EXPECT_EQ(camera->GetMediaInfo(), "");
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
  EXPECT_NE(camera->GetMediaInfo().find("spsoffset=4,"), std::string::npos) << "as text";
}

TEST_F(FrameDelivery, TheJumpsFindTheFirstSlice) {
  const Camera camera = Make();
  ASSERT_TRUE(camera->Open());
  const auto info = camera->GetH264MediaInfo();
  const auto at = [](auto jump, std::string_view text) {
    std::uint32_t left = 0;
    const std::vector<std::uint8_t> frame(text.begin(), text.end());  // its end is watched
    const auto* found = jump(frame.data(), static_cast<std::uint32_t>(frame.size()), &left);
    if (found == nullptr) return -1;
    EXPECT_EQ(static_cast<std::size_t>(found - frame.data()) + left, frame.size());
    return static_cast<int>(found - frame.data());
  };
  using std::string_view_literals::operator""sv;
  const struct {
    std::string_view frame;
    int byte_stream;
    int avc;
    int either;
  } rows[] = {
      {"", -1, -1, -1},
      {"\0\0\0\1\x67z\0\0\0\1\x68y\0\0\0\1\x65x"sv, 12, -1, 12},
      {"\0\0\1\x06q\0\0\1\x41x"sv, 5, -1, 5},
      {"\0\0\0\1\x67"sv, -1, -1, -1},
      {"\0\0\0\1"sv, -1, -1, -1},
      {"\0\0\0\2\x67z\0\0\0\3\x65xx"sv, -1, 6, 6},
      {"\0\0\0\2\x67z\0\0\0\4\x65xx"sv, -1, -1, -1},
      {"\0\0\0\2\x67z\xff\xff\xff\xff\x65"sv, -1, -1, -1},
      {"\0\0\0\0\x65x"sv, -1, -1, -1},
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
