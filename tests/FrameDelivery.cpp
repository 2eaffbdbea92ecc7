// Frames on their way to the client, pushed and pulled, and what becomes of their memory.
#include <cstring>
#include <span>
#include <thread>

#include "common/StreamAppOutput.h"
#include "Fixture.h"
#include "OddRtos.h"
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

class FrameDelivery : public StreamTest {};

TEST_F(FrameDelivery, APulledFrameIsHeldOnceUntilItsLastOwnerIsGone) {
  const Camera camera = OpenPull();
  Frame frame;
  ASSERT_TRUE(camera->PullFrame(frame, true) && frame->isKey);
  const Frame again = frame;
  EXPECT_EQ(Counters().held, 1U);
  ASSERT_TRUE(camera->PullFrame(frame, true));
  EXPECT_EQ(Counters().held, 2U);
  ASSERT_TRUE(camera->PullFrame(frame, true));
  EXPECT_EQ(Counters().held, 2U) << "what the frame held before is released";
  frame.reset();
  EXPECT_EQ(Counters().held, 1U);
}

TEST_F(FrameDelivery, APushedFrameIsHeldDuringTheCallbackAndLongerIfKept) {
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
  ASSERT_TRUE(done.Wait() && camera->Stop());
  EXPECT_EQ(held, (std::vector<std::uint64_t>{1, 1, 2}));
  EXPECT_EQ(Counters().held, 1U);
  kept.clear();
  EXPECT_EQ(Counters().held, 0U);
}

TEST_F(FrameDelivery, APushedStreamCannotBePulledNorAPulledOnePushed) {
  const auto ignore = [](Frame&) { return true; };
  EXPECT_FALSE(Make(kPull)->RegisterOutputCallback(ignore));
  const Camera camera = OpenPush(ignore);
  const Frame before = std::make_shared<frame_t>();
  Frame frame = before;
  EXPECT_FALSE(camera->PullFrame(frame, true) || camera->PullFrame(frame, false));
  EXPECT_EQ(frame, before);
}

TEST_F(FrameDelivery, FramesPushedWithoutACallbackAreReleased) {
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
  EXPECT_EQ(LogLines(), Lines{"plugin/api/linux/common/StreamAppOutput.cpp/#/CbOutput:\t"
                              "!_funcOutput(frm),N6tessel6dualos10H264SourceE"});
}

TEST_F(FrameDelivery, KeptFramesStayReadableBeyondTheNextAndBeyondClose) {
  Camera camera = OpenPull();
  std::vector<std::pair<Frame, std::string>> kept;
  for (int i = 0; i < 5; ++i) {
    Frame frame = NextFrame(camera);
    ASSERT_TRUE(frame && frame->size > 4);
    kept.emplace_back(frame, Bytes(frame));
    EXPECT_EQ(kept.back().second.substr(0, 4), std::string("\0\0\0\1", 4));
  }
  NextFrame(camera);
  EXPECT_TRUE(camera->Close());
  camera.reset();
  for (const auto& [frame, bytes] : kept) EXPECT_EQ(Bytes(frame), bytes);
  KillRtos();
  for (const auto& [frame, bytes] : kept) EXPECT_EQ(Bytes(frame), bytes);
  EXPECT_EQ(Counters().held, 5U);
  kept.clear();
  EXPECT_TRUE(quill::host::Streams().empty()) << "the last frame ends the session";
}

TEST_F(FrameDelivery, PullsThatWaitReturnFalseOnceTheStreamEnds) {
  void (*const ends[])(const Camera&) = {
      [](const Camera& camera) { EXPECT_TRUE(camera->Stop()); },
      [](const Camera& camera) { EXPECT_TRUE(camera->Close()); },
      [](const Camera&) { KillRtos(); },
  };
  for (const auto& end : ends) {
    const Camera camera = OpenPull();
    const std::vector<Frame> kept = HoldAllSlots(camera);
    std::atomic<int> busy{0};
    std::vector<std::future<Frame>> pulls(4);
    for (auto& pull : pulls) {
      pull = std::async(std::launch::async, [&] { return ++busy, NextFrame(camera); });
    }
    ASSERT_TRUE(Eventually([&] { return busy == 4; }));
    end(camera);
    for (auto& pull : pulls) {
      ASSERT_EQ(pull.wait_for(kDeadline), std::future_status::ready);
      EXPECT_EQ(pull.get(), nullptr);
    }
  }
}

TEST_F(FrameDelivery, PullReturnsFalseWhileNothingPlays) {
  const Camera camera = Make();
  Frame frame;
  EXPECT_FALSE(camera->PullFrame(frame, true)) << "never opened";
  ASSERT_TRUE(camera->ChangeState(State::kPlay) && camera->PullFrame(frame, true));
  EXPECT_TRUE(camera->Stop() && !camera->PullFrame(frame, true));
  EXPECT_TRUE(camera->Close() && !camera->PullFrame(frame, true));
  EXPECT_NE(frame, nullptr) << "untouched";
}

// It may come before Start() has returned.
TEST_F(FrameDelivery, TheFirstFrameMayStopOrCloseTheStream) {
  UseOddRtos("floods");
  for (int round = 0; round < 50; ++round) {
    const State end = round % 2 == 1 ? State::kNull : State::kReady;
    std::atomic<int> calls{0};
    Event done;
    Event again;
    const Camera camera = Make(kPush);
    camera->RegisterOutputCallback([&](Frame&) {
      if (++calls > 1) return again.Set(), true;
      EXPECT_TRUE(end == State::kNull ? camera->Close() : camera->Stop());
      EXPECT_EQ(camera->CurrentState(), end) << "round " << round;
      done.Set();
      return true;
    });
    ASSERT_TRUE(camera->Open() && camera->Start() && done.Wait());
    ASSERT_EQ(camera->CurrentState(), end) << "round " << round;
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(camera->ChangeState(State::kPlay) && again.Wait()) << "it can be started again";
    EXPECT_TRUE(camera->Stop());
  }
}

TEST_F(FrameDelivery, FramesFromBeforeAStopAreNotDeliveredAfterTheStart) {
  const Camera camera = OpenPull();
  ASSERT_TRUE(Eventually([] { return Counters().published > 2; }));
  ASSERT_TRUE(camera->Stop());
  const auto stop = std::chrono::steady_clock::now().time_since_epoch();
  ASSERT_TRUE(camera->Start());
  EXPECT_GT(std::chrono::nanoseconds(NextFrame(camera)->timestamp), stop);
}

TEST_F(FrameDelivery, CallbacksBeginWithEachStartAndEndWithEachStop) {
  UseOddRtos("floods");
  std::atomic<int> calls{0};
  std::atomic<int> late{0};
  std::atomic<bool> is_stopped{false};
  const Camera camera = Make(kPush);
  camera->RegisterOutputCallback([&](Frame&) {
    ++calls;
    for (int i = 0; i < 50; ++i) std::this_thread::yield();  // a Stop() that does not wait is done
    late += is_stopped ? 1 : 0;
    return true;
  });
  for (int round = 0; round < 40; ++round) {
    calls = 0;
    is_stopped = false;
    ASSERT_TRUE(camera->ChangeState(State::kPlay));
    ASSERT_TRUE(Eventually([&] { return calls > 0; })) << "round " << round;
    EXPECT_TRUE(camera->Stop());
    is_stopped = true;
    EXPECT_TRUE(round % 2 == 0 || camera->Close());
    EXPECT_EQ(late, 0) << "round " << round;
  }
}

template <typename... Numbers>
std::string Joined(Numbers... numbers) {
  return ((std::to_string(numbers) + " ") + ...);
}

// What `source` tells of its media.
std::string Described(IStreamOutput& source) {
  if (auto* h264 = dynamic_cast<IH264*>(&source)) {
    const H264MediaInfo info = h264->GetH264MediaInfo();
    return Joined(info.width, info.height, info.headerSize, info.spsOffset, info.spsSize,
                  info.spsLength, info.ppsOffset, info.ppsSize, info.ppsLength) +
           info.pack;
  }
  if (auto* jpeg = dynamic_cast<IJpegSource*>(&source)) {
    return Joined(jpeg->GetJpegMediaInfo().width, jpeg->GetJpegMediaInfo().height);
  }
  if (auto* yuv = dynamic_cast<IYuvSource*>(&source)) {
    const YuvMediaInfo info = yuv->GetYuvMediaInfo();
    return Joined(info.width, info.height, info.frameRate, info.interlaced) + info.format;
  }
  const auto info = dynamic_cast<IAacSource&>(source).GetAacMediaInfo();
  return Joined(info.profile, info.version, info.rateidx, info.adtsLength, info.bitrate / 10'000);
}

// By key, the member of the media info that gets its value; the check that fails without it tells
// both.
TEST_F(FrameDelivery, AMediaDescriptionIsReadInOrderUntilAKeyIsMissing) {
  const struct {
    const char* name;
    std::string file;
    const char* told;  // when no key is missing
    AttrSet members;
  } rows[] = {
      {kPull, "H264Source", "208 112 17 4 2 2 10 3 3 byte-stream",
       AttrSet("w=_h264.width,h=_h264.height,sps=_h264.sps,pack=_h264.pack,"
               "jump=_h264.cbJumpToData")},
      {"ApiJpegSource-dualos-cbrc-pull", "JpegSource", "208 112 ",
       AttrSet("w=_jpeg.width,h=_jpeg.height")},
      {"ApiYuvSource-dualos-pull", "YuvSource", "208 112 7 1 other",
       AttrSet("w=_yuv.width,h=_yuv.height,fmt=_yuv.format")},
      {"ApiAacSource-dualos-pull", "AacSource", "2 4 3 8 12 ",
       AttrSet("codec=,profile=_aac.profile,version=_aac.version,rateidx=_aac.rateidx,"
               "adtslen=_aac.adtsLength,bitrate=_aac.bitrate")},
  };
  UseOddRtos("asks");
  std::span<const AttrSet::Pair> missing;
  Replace("shm0_cmd", [&](AttrSet& args, const Command& real) {
    const bool done = real(args);
    if (args.Get("media") == nullptr) return done;
    AttrSet media(args.Get("media"));
    const AttrSet edits(
        "w=208,h=112,fmt=other,adtslen=8,spsoffset=4,isps=2,ppsoffset=10,ipps=3,"
        "header=0000000167680000000168696a");
    for (const auto& [key, value] : edits.Pairs()) media.Add(key.c_str(), value);
    for (const auto& [key, member] : missing) {
      media.Remove(key == "sps" ? "header" : key == "jump" ? "codec" : key.c_str());
    }
    return args.Add("media", media.ToString(false)) && done;
  });
  for (const auto& [name, file, told, members] : rows) {
    for (std::size_t first = 0; first <= members.Pairs().size(); ++first) {
      missing = std::span(members.Pairs()).subspan(first);
      const auto source = quill::host::Create<IStreamOutput>(name);
      SetSize(*source, 160, 120);
      if (auto* yuv = dynamic_cast<IYuvSource*>(source.get())) {
        yuv->SetInterlaced(true);
        yuv->SetFrameRate(7);
      }
      LogLines();
      EXPECT_EQ(source->Open(), missing.empty()) << name << first;
      if (missing.empty()) {
        EXPECT_EQ(Described(*source), told) << name;
      } else {
        const auto& [key, member] = missing.front();
        const std::string check = key == "codec" ? "!media->IsCodec(\"aac\")"
                                                 : "!media->Get(\"" + key + "\"," + member + ")";
        EXPECT_EQ(LogLines().front(), "plugin/api/linux/" + file + ".cpp/#/CbOpen:\t" + check);
      }
    }
  }
}

TEST_F(FrameDelivery, JumpToDataFindsTheFirstSlice) {
  const Camera camera = Make();
  ASSERT_TRUE(camera->Open());
  const auto info = camera->GetH264MediaInfo();
  const auto at = [](auto jump, std::string_view frame) {
    const auto* begin = reinterpret_cast<const std::uint8_t*>(frame.data());
    const auto* found = jump(begin, static_cast<std::uint32_t>(frame.size()), nullptr);
    return found == nullptr ? -1 : static_cast<int>(found - begin);
  };
  using std::string_view_literals::operator""sv;
  // In the byte stream format, and with lengths.
  const std::tuple<std::string_view, int, int> rows[] = {
      {"\0\0\0\1\x67z\0\0\0\1\x68y\0\0\0\1\x65x"sv, 12, -1},
      {"\0\0\1\x06q\0\0\1\x41x"sv, 5, -1},
      {"\0\0\0\1\x67"sv, -1, -1},
      {"\0\0\0\2\x67z\0\0\0\3\x65xx"sv, -1, 6},
      {"\0\0\0\2\x67z\0\0\0\4\x65xx"sv, -1, -1},
      {"\0\0\0\2\x67z\xff\xff\xff\xff\x65"sv, -1, -1},
      {"\0\0\0\0\x65x"sv, -1, -1},
  };
  for (const auto& [frame, byte_stream, avc] : rows) {
    EXPECT_EQ(at(info.cbJumpToDataBs, frame), byte_stream) << frame.size();
    EXPECT_EQ(at(info.cbJumpToDataAvc, frame), avc) << frame.size();
    EXPECT_EQ(at(info.cbJumpToData, frame), std::max(byte_stream, avc)) << frame.size();
  }
}

}  // namespace
}  // namespace tessel::tests
