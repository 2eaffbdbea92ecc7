// Frames on their way to the client, pushed and pulled, and what becomes of their memory.
#include <cstring>
#include <numeric>
#include <thread>

#include "common/StreamAppOutput.h"
#include "Fixture.h"
#include "OddFarSide.h"
#include "tessel/IAacSource.h"
#include "tessel/IJpegSource.h"
#include "tessel/IYuvSource.h"

namespace tessel::tests {
namespace {

using api::streaming::IAacSource;
using api::streaming::IJpegSource;
using api::streaming::IYuvSource;
using namespace api::streaming::common;

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

TEST_F(FrameDelivery, FramesFromBeforeAStopAreNotDeliveredAfterTheStart) {
  const Camera camera = OpenPull();
  ASSERT_TRUE(Eventually([] { return Counters().made > 2; }));
  ASSERT_TRUE(camera->Stop());
  const auto stop = std::chrono::steady_clock::now().time_since_epoch();
  ASSERT_TRUE(camera->Start());
  EXPECT_GT(std::chrono::nanoseconds(NextFrame(camera)->timestamp), stop);
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

// What `source` knows of its media; of H.264 also how much of the parameter sets, which are told
// when all is read.
std::string Known(IStreamOutput& source) {
  const auto size = [](const auto& info) {
    return std::to_string(info.width) + "x" + std::to_string(info.height);
  };
  if (auto* h264 = dynamic_cast<IH264*>(&source)) {
    const auto info = h264->GetH264MediaInfo();
    return size(info) + (info.sps == nullptr ? "" : " sps") + (info.pps == nullptr ? "" : " pps") +
           (info.headerSize == 0 ? "" : " all");
  }
  if (auto* jpeg = dynamic_cast<IJpegSource*>(&source)) return size(jpeg->GetJpegMediaInfo());
  if (auto* yuv = dynamic_cast<IYuvSource*>(&source)) {
    const YuvMediaInfo info = yuv->GetYuvMediaInfo();
    return size(info) + " " + info.format + " " + std::to_string(info.frameRate) +
           (info.interlaced ? "i" : "p");
  }
  const auto info = dynamic_cast<IAacSource&>(source).GetAacMediaInfo();
  return std::to_string(info.profile) + std::to_string(info.version) +
         std::to_string(info.rateidx) + std::to_string(info.adtsLength) + " " +
         std::to_string(info.bitrate / 10'000);
}

TEST_F(FrameDelivery, AMediaDescriptionIsReadInOrderAsFarAsItGoes) {
  struct Key {
    const char* key;
    const char* line;   // of the failed check when it is missing
    const char* known;  // then
  };
  const struct {
    const char* name;
    const char* file;
    std::vector<Key> keys;
    const char* known;  // when none is missing
  } rows[] = {
      {kPull,
       "H264Source",
       {{"w", "!media->Get(\"w\",_h264.width)", "160x120"},
        {"h", "!media->Get(\"h\",_h264.height)", "208x120"},
        {"header", "!media->Get(\"sps\",_h264.sps)", "208x112"},
        {"pack", "!media->Get(\"pack\",_h264.pack)", "208x112 sps pps"},
        {"codec", "!media->Get(\"jump\",_h264.cbJumpToData)", "208x112 sps pps"}},
       "208x112 sps pps all"},
      {"ApiJpegSource-dualos-cbrc-pull",
       "JpegSource",
       {{"w", "!media->Get(\"w\",_jpeg.width)", "160x120"},
        {"h", "!media->Get(\"h\",_jpeg.height)", "208x120"}},
       "208x112"},
      {"ApiYuvSource-dualos-pull",
       "YuvSource",
       {{"w", "!media->Get(\"w\",_yuv.width)", "160x120 420V50 7i"},
        {"h", "!media->Get(\"h\",_yuv.height)", "208x120 420V50 7i"},
        {"fmt", "!media->Get(\"fmt\",_yuv.format)", "208x112 420V50 7i"}},
       "208x112 other 7i"},
      {"ApiAacSource-dualos-pull",
       "AacSource",
       {{"codec", "!media->IsCodec(\"aac\")", "0007 0"},
        {"profile", "!media->Get(\"profile\",_aac.profile)", "0007 0"},
        {"version", "!media->Get(\"version\",_aac.version)", "2007 0"},
        {"rateidx", "!media->Get(\"rateidx\",_aac.rateidx)", "2407 0"},
        {"adtslen", "!media->Get(\"adtslen\",_aac.adtsLength)", "2437 0"},
        {"bitrate", "!media->Get(\"bitrate\",_aac.bitrate)", "2438 0"}},
       "2438 12"},
  };
  const std::vector<Key>* keys = nullptr;
  std::size_t first = 0;  // of the keys that are missing: what follows it is not read
  EditMedia([&](AttrSet& media) {
    for (const char* pair : {"w=208", "h=112", "fmt=other", "adtslen=8"}) {
      media.Add(std::string(pair, std::strchr(pair, '=')).c_str(), std::strchr(pair, '=') + 1);
    }
    for (std::size_t i = first; i < keys->size(); ++i) media.Remove((*keys)[i].key);
  });
  for (const auto& [name, file, these, known] : rows) {
    keys = &these;
    for (first = 0; first <= these.size(); ++first) {
      const auto source = quill::host::Create<IStreamOutput>(name);
      if (auto* video = dynamic_cast<IVideoSource*>(source.get())) {
        video->SetWidth(160);
        video->SetHeight(120);
      }
      if (auto* yuv = dynamic_cast<IYuvSource*>(source.get())) {
        yuv->SetWidth(160);
        yuv->SetHeight(120);
        yuv->SetInterlaced(true);
        yuv->SetFrameRate(7);
      }
      LogLines();
      const bool is_whole = first == these.size();
      EXPECT_EQ(source->Open(), is_whole) << name << first;
      EXPECT_EQ(Known(*source), is_whole ? known : these[first].known) << name << first;
      if (is_whole) continue;
      const Lines lines = LogLines();
      EXPECT_EQ(lines.front(),
                std::string("plugin/api/linux/") + file + ".cpp/#/CbOpen:\t" + these[first].line);
      EXPECT_EQ(lines.back(), "plugin/api/linux/common/StreamApp.cpp/#/Open:\t!AppCreate()");
    }
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
