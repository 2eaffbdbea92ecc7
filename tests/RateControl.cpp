// The rate-control block: its layout, who writes what, and how it comes and goes.
#include <algorithm>
#include <array>
#include <cstring>
#include <random>

#include "common/StreamVbrc.h"
#include "Fixture.h"
#include "quill/Hash.h"
#include "quill/SharedMemory.h"

namespace tessel::tests {
namespace {

using api::streaming::common::IBitRateControl;
using api::streaming::common::ITrigger;
using dualos::StreamVbrc;

constexpr char kVbrcFile[] = "plugin/api/linux/common/StreamVbrc.cpp/#/";

// What an encoder on the other operating system was built with; zero everywhere else.
const struct {
  const char* name;  // for the reader
  std::size_t offset;
  std::size_t size;
  unsigned value;
} kWords[] = {
    {"bitrate", 4, 4, 0},      {"bitrate_max", 8, 4, 2000000}, {"bitrate_min", 12, 4, 50000},
    {"framerate", 20, 4, 30},  {"framerate_max", 24, 4, 30},   {"framerate_min", 28, 4, 1},
    {"qp", 36, 4, 0},          {"qp_max", 40, 4, 50},          {"qp_min", 44, 4, 10},
    {"qp_reported", 48, 4, 0}, {"keyframe_req", 56, 4, 0},     {"bitrate_target", 64, 4, 1000000},
    {"trigger_req", 68, 4, 0}, {"trigger_served", 72, 4, 0},   {"frame_count", 220, 4, 0},
    {"extra_user", 604, 4, 0}, {"extra_max", 608, 4, 0},       {"extra_len", 612, 4, 0},
    {"extra", 616, 128, 0},
};
constexpr std::size_t kBlockBytes = 744;

using Bytes = std::array<unsigned char, kBlockBytes>;

Bytes FreshBlock(unsigned extra_max) {
  Bytes bytes = {};
  for (const auto& word : kWords) {
    std::memcpy(&bytes[word.offset], &word.value, std::min<std::size_t>(word.size, 4));
  }
  std::memcpy(&bytes[608], &extra_max, 4);
  return bytes;
}

// A source of one's own, to ask for other sizes.
class Block : public StreamVbrc {
 public:
  using StreamVbrc::CreateVbrc;
  using StreamVbrc::FreeVbrc;
  using StreamVbrc::StreamVbrc;
};

class RateControl : public StreamTest {
 protected:
  RateControl() { WatchBlock(); }
  // Answers "shm_alloc" with that "ptr", or without any.
  void AnswerAlloc(bool done, const char* ptr) {
    Replace("shm_alloc", [this, done, ptr](AttrSet& args, const Command&) {
      _asked_size = args.Get("size");
      if (ptr != nullptr) args.Add("ptr", ptr);
      return done;
    });
  }
  static Bytes In(const void* block) {
    Bytes bytes;
    std::memcpy(bytes.data(), block, kBlockBytes);
    return bytes;
  }
  Bytes Live() const { return In(_block); }
  static void Store(void* block, std::size_t offset, int value) {
    std::memcpy(static_cast<char*>(block) + offset, &value, 4);
  }

  std::string _asked_size;
};

TEST_F(RateControl, AFreshBlockHoldsTheDefaults) {
  const Camera camera = Make();
  EXPECT_EQ(Live(), FreshBlock(0));
  auto* vbrc = new quill::stream::VBRC(nullptr);
  EXPECT_EQ(In(vbrc->Data()), FreshBlock(0)) << "as the host makes it";
  EXPECT_EQ(vbrc->Size(), kBlockBytes);
  delete vbrc;
}

TEST_F(RateControl, EachSetterStoresOneWordUnchecked) {
  const struct {
    void (IBitRateControl::*set)(int);
    std::size_t offset;
  } rows[] = {
      {&IBitRateControl::SetBitRateMaximum, 8},    {&IBitRateControl::SetBitRateMinimum, 12},
      {&IBitRateControl::SetFrameRate, 20},        {&IBitRateControl::SetFrameRateMaximum, 24},
      {&IBitRateControl::SetFrameRateMinimum, 28}, {&IBitRateControl::SetQP, 36},
      {&IBitRateControl::SetQPMaximum, 40},        {&IBitRateControl::SetQPMinimum, 44},
  };
  const Camera camera = Make();
  Bytes expected = FreshBlock(0);
  int value = -77;
  camera->SetBitRate(value);
  std::memcpy(&expected[64], &value, 4);
  for (const auto& row : rows) {
    (*camera.*row.set)(++value);
    std::memcpy(&expected[row.offset], &value, 4);
    EXPECT_EQ(Live(), expected) << "offset " << row.offset;
  }
}

TEST_F(RateControl, GettersReadWhatTheEncoderReports) {
  const Camera camera = Make();
  camera->SetBitRate(123456);
  EXPECT_EQ(camera->GetCurrentBitRate(), 0) << "what was asked is not what is measured";
  Store(_block, 4, 1111);
  Store(_block, 20, 22);
  Store(_block, 36, 33);
  Store(_block, 48, 44);  // in use, not asked
  EXPECT_EQ(camera->GetCurrentBitRate(), 1111);
  EXPECT_EQ(camera->GetCurrentFrameRate(), 22);
  EXPECT_EQ(camera->GetCurrentQP(), 33);
}

TEST_F(RateControl, KeyFrameRequestsAreCounted) {
  const Camera camera = Make();
  Store(_block, 56, 41);
  camera->ForceKeyFrame();
  camera->ForceKeyFrame();
  camera->Trigger();  // has no effect here
  Bytes expected = FreshBlock(0);
  expected[56] = 43;
  EXPECT_EQ(Live(), expected);
}

TEST_F(RateControl, EachSourceListsItsModesInOrderAndCountsItsTriggers) {
  const struct {
    const char* name;
    std::vector<int> modes;
    int triggers;  // that one Trigger() counts
  } rows[] = {
      {kPull, {1, 6}, 0},
      {"ApiH264SourceTrigger-dualos-trigger-pull", {1, 6}, 1},
      {"ApiH264Source-vbrc-dualos-pull", {6, 1, 2, 3, 5}, 0},
      {"ApiH264Source-dualos-vbrc-trigger-pull", {6, 1, 2, 3, 5}, 1},
      {"ApiJpegSource-dualos-cbrc-pull", {1, 6}, 0},
      {"ApiJpegSourceTrigger-dualos-trigger-pull", {1, 6}, 1},
  };
  for (const auto& [name, modes, triggers] : rows) {
    const auto source = quill::host::Create<IBitRateControl>(name);
    const auto list = source->BitRateControlSupportedList();
    EXPECT_EQ(std::vector<int>(list.begin(), list.end()), modes) << name;
    dynamic_cast<ITrigger&>(*source).Trigger();
    EXPECT_EQ(_block->trigger_req, triggers) << name;
  }
}

TEST_F(RateControl, SelectingConstantGivesTheQpUp) {
  const Camera camera = Make();
  camera->SetQP(30);
  EXPECT_TRUE(camera->SelectBitRateControl(IBitRateControl::kFixedQp));
  EXPECT_EQ(camera->GetCurrentQP(), 30);
  EXPECT_EQ(LogLines(), Lines());
  EXPECT_FALSE(camera->SelectBitRateControl(IBitRateControl::kVariable));
  EXPECT_EQ(camera->GetCurrentQP(), 30);
  EXPECT_EQ(LogLines(),
            (Lines{std::string(kVbrcFile) + "IsSupport:\t2",
                   std::string(kVbrcFile) + "SelectBitRateControl:\t!IsSupport(brc),2"}));
  LogLines(quill::stream::kTrace);
  EXPECT_TRUE(camera->SelectBitRateControl(IBitRateControl::kConstant));
  EXPECT_EQ(camera->GetCurrentQP(), 0);
  EXPECT_EQ(LogLines(quill::stream::kTrace), Lines{std::string(kVbrcFile) + "IsSupport:\t0x1,0x1"});
}

TEST_F(RateControl, TheAnswerToTheAllocationIsJudged) {
  const std::string make = std::string(kVbrcFile) + "CreateVbrc:\t";
  const std::string made = std::string(kVbrcFile) + "StreamVbrc:\t!CreateVbrc(extra_size)";
  const std::string run = make + "!Factory::Globle().Run(\"shm_alloc\",ap)";
  const struct {
    bool done;
    const char* ptr;
    Lines lines;
  } rows[] = {
      {true, nullptr, {make + "!ap.Get(\"ptr\",_vbrc)", made}},
      {false, nullptr, {run, make + "!ap.Get(\"ptr\",_vbrc)", made}},
      {true, "0", {make + "!_vbrc", made}},
      {true, "", {make + "!_vbrc", made}},
      {true, "xyz", {make + "!_vbrc", made}},
      {false, "0x0", {run, make + "!_vbrc", made}},
  };
  for (const auto& row : rows) {
    AnswerAlloc(row.done, row.ptr);
    Block block(0);
    EXPECT_EQ(LogLines(), row.lines);
    EXPECT_TRUE(block.FreeVbrc()) << "without a block";
    EXPECT_EQ(LogLines(), Lines());
    EXPECT_FALSE(block.IsSupport(IBitRateControl::kConstant)) << "an empty list supports nothing";
    LogLines();
  }
}

TEST_F(RateControl, ABlockGivenInSpiteOfAFailureIsUsed) {
  alignas(8) static char memory[kBlockBytes + 1024];
  std::memset(memory, 0x5a, sizeof memory);
  const std::string ptr = quill::base::ToString<const void*>(memory).substr(2);  // no "0x" needed
  AnswerAlloc(false, ptr.c_str());
  Block block(1024);
  EXPECT_EQ(_asked_size, "1768");
  EXPECT_EQ(In(memory), FreshBlock(1024));
  EXPECT_EQ(std::string(memory + kBlockBytes, 1024), std::string(1024, 0x5a)) << "not cleared";
  EXPECT_EQ(LogLines(), Lines{std::string(kVbrcFile) +
                              "CreateVbrc:\t!Factory::Globle().Run(\"shm_alloc\",ap)"});
  _asked_size.clear();
  block.SetQP(9);
  EXPECT_TRUE(block.CreateVbrc(5)) << "has one already";
  EXPECT_EQ(_asked_size, "");
  EXPECT_EQ(block.GetCurrentQP(), 9);
  Block plain(0);
  EXPECT_EQ(_asked_size, "744");
}

TEST_F(RateControl, FreeingCallsTheHostOnceAndNeedsNoAnswer) {
  using Free = std::uintptr_t();
  Factory& factory = Factory::Globle();
  int calls = 0;
  const auto real = factory.ReplaceFunction<Free>("shm_free", [&] { return ++calls, 12345U; });
  Make().reset();
  EXPECT_EQ(calls, 1);
  factory.ReplaceFunction<Free>("shm_free", nullptr);
  LogLines();
  Make().reset();
  EXPECT_TRUE(LogLines().at(0).ends_with(":\t!obj,no func:shm_free"));
  factory.ReplaceFunction<Free>("shm_free", real);
}

TEST_F(RateControl, AThousandSourcesLeaveNoBlockBehindAndTouchNoOther) {
  constexpr unsigned kSeed = 4711;
  std::mt19937 random(kSeed);
  const auto before = quill::host::GetWindowUse();
  std::vector<std::pair<Camera, quill::stream::VbrcBlock*>> cameras(6);
  for (int round = 0; round < 1000; ++round) {
    auto& [camera, block] = cameras[random() % cameras.size()];
    if (!camera) {
      camera = Make(round % 2 == 0 ? kPull : kPush);
      ASSERT_EQ(Live(), FreshBlock(0)) << "seed " << kSeed << ", round " << round;
      block = _block;
      camera->SetBitRate(round);
      camera->SetQPMaximum(round);
      std::memset(block->extra, round, 128);
      continue;
    }
    const int round_then = block->bitrate_target;
    camera->SetBitRate(1000000);
    camera->SetQPMaximum(50);
    Bytes expected = FreshBlock(0);
    std::memset(&expected[616], round_then, 128);
    ASSERT_EQ(In(block), expected) << "seed " << kSeed << ", round " << round;
    camera.reset();
  }
  cameras.clear();
  cameras.resize(3);
  for (auto& [camera, block] : cameras) camera = Make();
  cameras[1].first.reset();
  EXPECT_EQ(quill::host::GetWindowUse().free_pieces, before.free_pieces + 1);
  cameras[1].first = Make();
  EXPECT_EQ(quill::host::GetWindowUse().free_pieces, before.free_pieces) << "it fits exactly";
  cameras.clear();
  EXPECT_EQ(quill::host::GetWindowUse().used_bytes, before.used_bytes);
  EXPECT_EQ(quill::host::GetWindowUse().free_pieces, before.free_pieces);
}

TEST_F(RateControl, NobodyGetsABlockOutsideAConstructor) {
  AttrSet args("size=744");
  EXPECT_FALSE(Factory::Globle().Run("shm_alloc", args));
  EXPECT_EQ(args.Get("ptr"), nullptr);
  for (const char* text : {"", "size=0", "size=-1", "size=x"}) {
    AttrSet bad(text);
    EXPECT_FALSE(Factory::Globle().Run("shm_alloc", bad)) << text;
  }
}

TEST(Hash, IsFoldedFnv1a) {
  using quill::base::Hash;
  EXPECT_EQ(Hash(nullptr), 0U);
  EXPECT_EQ(Hash(""), 0x811c9dc5U);
  EXPECT_EQ(Hash("a"), 0xe40c292cU);  // published vectors of the function
  EXPECT_EQ(Hash("foobar"), 0xbf9cf968U);
  EXPECT_EQ(Hash("FooBAR"), 0xbf9cf968U);
  EXPECT_EQ(Hash("\xe4"), (0x811c9dc5U ^ 0xe4U) * 16777619U) << "bytes are unsigned";
  EXPECT_NE(Hash("["), Hash("{")) << "only letters are folded";
  EXPECT_NE(Hash("@"), Hash("`"));
}

}  // namespace
}  // namespace tessel::tests
